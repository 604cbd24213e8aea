"""Another program on the same table: a host of the library (through ctypes)
that inserts records into TABLE while a commit of the SQL layer rewrites it,
from the moment the rewrite's new file appears in the directory until it is
gone (or the file STOP is there). Prints how many inserts it tried, then the
records whose insert and close both succeeded.

    inserter.py LIBRARY TABLE STOP
"""
import ctypes
import os
import sys
import time

library, table, stop = ctypes.CDLL(sys.argv[1]), sys.argv[2].encode(), sys.argv[3]
session, db = ctypes.c_uint32(), ctypes.c_uint32()
library.dbInitMerge(1, 0, 0, 0, ctypes.byref(session), None)
assert library.dbOpenDBMerge(4, 0, 0, os.getcwd().encode(), ctypes.byref(db)) == 0


def rewriting():
    return any(name.startswith("mergedb-tmp-") for name in os.listdir("."))


def insert(name):
    handle = ctypes.c_uint32()
    if library.dbOpenTableMerge(4, db.value, table, 0, 0, ctypes.byref(handle), b",", b"\r\n", b'"', b"", 0) != 0:
        return False
    done = library.dbClearRecordMerge(handle.value) == 0
    done = done and library.dbPutFieldValueHMerge(handle.value, 0, name, 1, len(name)) == 0
    done = done and library.dbInsertMerge(handle.value, 0, None) == 0
    return library.dbCloseTableMerge(ctypes.byref(handle)) == 0 and done


print("ready", flush=True)
while not rewriting() and not os.path.exists(stop):
    time.sleep(0.001)
inserted, attempt = [], 0
while rewriting() and not os.path.exists(stop):
    attempt += 1
    name = b"new%d" % attempt
    if insert(name):
        inserted.append(name.decode())
print("tried", attempt)
print(" ".join(inserted))
