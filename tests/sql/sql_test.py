"""Python's sqlite3 module with the extension: a transaction rolled back and
one committed, a query by example with rowids, and a thread of the program
beside the extension.

    sql_test.py EXTENSION TABLE
"""
import os
import shutil
import sqlite3
import sys
import threading

extension, table = sys.argv[1], sys.argv[2]
db = sqlite3.connect(":memory:", isolation_level=None)
db.enable_load_extension(True)
db.load_extension(extension)
db.execute(f"CREATE VIRTUAL TABLE p USING mergedb('{table}', header=yes)")

db.execute("BEGIN")
db.executemany("INSERT INTO p VALUES (?, ?, ?)", [("5", "Eve", "Tromsø"), ("6", "Max", "Tromsø")])
assert db.execute("SELECT count(*) FROM p").fetchone()[0] == 6
db.execute("ROLLBACK")
print("rolled back:", db.execute("SELECT count(*) FROM p").fetchone()[0], "records")

db.execute("BEGIN")
db.executemany("INSERT INTO p VALUES (?, ?, ?)", [("5", "Eve", "Tromsø"), ("6", "Max", "Tromsø")])
db.execute("COMMIT")
print("committed:", db.execute("SELECT count(*) FROM p").fetchone()[0], "records")

rows = db.execute("SELECT rowid, name FROM p WHERE city LIKE 'o%' ORDER BY rowid").fetchall()
assert [name for _, name in rows] == ["Ann", "Bob"], rows
assert db.execute("SELECT name FROM p WHERE rowid = ?", (rows[1][0],)).fetchone() == ("Bob",)
try:
    db.execute("INSERT INTO p VALUES ('7', 'x' || char(10) || '\"', 'y')")
except sqlite3.Error as error:
    assert "the value for field \"name\"" in str(error), error
else:
    raise AssertionError("a quote next to a delimiter was taken")

# The extension leaves the process's current directory alone while it opens
# and commits a table of another directory whose path holds no '.': another
# thread keeps finding what lies in its current directory.
os.mkdir("elsewhere")
shutil.copy(table, "elsewhere")
db.execute(f"CREATE VIRTUAL TABLE e USING mergedb('elsewhere/{table}', header=yes)")
misses, looking = [], True


def look():
    while looking:
        if not os.path.isdir("elsewhere"):
            misses.append(os.getcwd())


thread = threading.Thread(target=look)
thread.start()
for i in range(20):
    db.execute("UPDATE e SET city = ? WHERE id = '1'", (str(i),))
    assert db.execute("SELECT city FROM e WHERE name LIKE 'z%'").fetchone() == (str(i),)
looking = False
thread.join()
assert "." in os.getcwd() or not misses, f"another thread found itself in {misses[0]} {len(misses)} times"
