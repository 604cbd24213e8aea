#!/usr/bin/env bash
# Drives the SQL layer as people do: the sqlite3 shell with .load, Python's
# sqlite3 module and the tool's sql command, on copies of the sample and on
# tables written here; checks what they print and the files' bytes.
#
#   sql_test.sh GROUP TOOL EXTENSION SAMPLE_DIRECTORY SOURCE_DIRECTORY
set -u
group=$1
tool=$2
extension=$3
sample=$4
source=$5
library=$(dirname "$extension")/libmergedb.so
work=$(mktemp -d "${TMPDIR:-/tmp}/sqltest-XXXXXX")  # no "." in the path: the driver takes it whole
trap 'umount "$work/disk" 2>/dev/null; rm -rf "$work"' EXIT
mkdir "$work/db" && cd "$work/db" || exit 1
cp "$sample"/* .
printf 'id;name;city\n1;Zoë;Köln\n2;José;Sevilla\n3;Ann;Oslo\n4;Bob;Oslo\n' >people.csv
failures=0

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The sqlite3 shell and Python. An extension built with AddressSanitizer
# needs its runtime loaded first (SQL_PRELOAD); their own leaks are not ours.
host() {
  if [ -n "${SQL_PRELOAD:-}" ]; then
    env LD_PRELOAD="$SQL_PRELOAD" ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0" "$@"
  else
    "$@"
  fi
}
shell() { host sqlite3 "$@"; }

# run_sql STATEMENTS: runs STATEMENTS after loading the extension and making
# the tables c (contacts.doc), t (contacts.txt) and p (people.csv).
run_sql() {
  printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE c USING mergedb('contacts.doc');" \
    "CREATE VIRTUAL TABLE t USING mergedb('contacts.txt');" \
    "CREATE VIRTUAL TABLE p USING mergedb('people.csv', header=yes);" "$1" | shell -bail :memory: 2>&1
}

# sql EXPECTED STATEMENTS: what they print, with backslash escapes.
sql() {
  local got
  got=$(run_sql "$2")
  [ "$got" = "$(printf '%b' "$1")" ] || fail "$2: printed: $got"
}

# sql_error TEXT STATEMENTS: they must tell TEXT.
sql_error() {
  local got
  got=$(run_sql "$2")
  grep -qF -- "$1" <<<"$got" || fail "$2: printed: $got"
}

same() { cmp -s "$1" "$2" || fail "$1 changed: $(od -c "$1" | head -4)"; }

test_Reads() {
  sql 'José Núñez|José\nZoë Müller|Zoë' \
    "SELECT c.Name, p.name FROM c JOIN p ON p.city = c.City ORDER BY c.Name;"
  sql 'Oslo|2\nKöln|1\nSevilla|1' "SELECT city, count(*) FROM p GROUP BY city ORDER BY count(*) DESC, city;"
  # Rowids are the records' offsets; a jump reads one record, and a place
  # inside a record names none. A text or real that reads as an integer
  # names a rowid, as in any table.
  sql '13|26|42|53\nAnn\nAnn|Ann|0\n53\n42' "SELECT group_concat(rowid, '|') FROM p;
    SELECT name FROM p WHERE rowid = 42; SELECT name FROM p WHERE rowid = 44;
    SELECT (SELECT name FROM p WHERE rowid = '42'), (SELECT name FROM p WHERE rowid = 42.0),
      (SELECT count(*) FROM p WHERE rowid = 42.5) + (SELECT count(*) FROM p WHERE rowid = '42x');
    SELECT rowid FROM p ORDER BY rowid DESC LIMIT 2;"
  # The walk back gives the records of a forward walk in reverse, with the
  # same rowids, also where a quoted value holds a line end.
  printf 'a,b\r\n"x\r\ny",1\r\n"2\r\n",z\r\nlast,"\r\n"\r\n' >quoted.csv
  for table in contacts.doc:Name contacts1.doc:Name contacts.txt:1 quoted.csv:1; do
    record="rowid || ':' || hex(\"${table#*:}\") AS r FROM q"
    got=$(printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE q USING mergedb('${table%:*}');" \
      "SELECT group_concat(r, '|') FROM (SELECT $record);" \
      "SELECT group_concat(r, '|') FROM (SELECT $record ORDER BY rowid DESC);" | shell -bail :memory: 2>&1)
    forward=$(echo "$got" | head -1 | tr '|' '\n' | tac | paste -sd'|')
    [ -n "$forward" ] && [ "$forward" = "$(echo "$got" | tail -1)" ] || fail "$table: walks differ: $got"
  done
  sql 'Ana, "Annie" Lee\nFrançois Gaël' "SELECT \"1\" FROM t ORDER BY rowid DESC LIMIT 2;"
  sql 'Zoë Müller|Köln' "SELECT Name, City FROM c WHERE Name LIKE 'zo%' AND City GLOB 'K*';"
  sql '{"id":"3","name":"Ann","city":"Oslo"}' \
    "SELECT record FROM mergedb('people.csv', 'header=yes', 'field_delimiter=;') WHERE record->>'name' = 'Ann';"
  plan=$(printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE p USING mergedb('people.csv', header=yes);" \
    "EXPLAIN QUERY PLAN SELECT * FROM p WHERE rowid = 42;" "EXPLAIN QUERY PLAN SELECT * FROM p ORDER BY rowid DESC;" \
    "EXPLAIN QUERY PLAN SELECT * FROM p WHERE name LIKE 'A%' AND city = 'Oslo';" | shell :memory:)
  for way in 'rowid jump (dbGetRecordMerge)' 'walk back from the last record (dbLastMerge, dbPrevMerge)' \
    'find by example (dbFindRecordMerge): city = ?, name LIKE ? [2=1~]'; do
    grep -qF "$way" <<<"$plan" || fail "no plan '$way' in: $plan"
  done
}

test_Edits() {
  cp people.csv before.csv
  # ROLLBACK, and a transaction that is never committed, leave every byte.
  sql '1|Zoë|Wien\n3|Ann|Oslo\n4|Bob|Oslo\n5|Ida|Bergen' "BEGIN; INSERT INTO p VALUES ('5', 'Ida', 'Bergen');
    UPDATE p SET city = 'Wien' WHERE name = 'Zoë'; DELETE FROM p WHERE id = '2'; SELECT * FROM p; ROLLBACK;"
  same people.csv before.csv
  # A statement that fails in a transaction takes back its own changes
  # (here the first record's), and the commit writes those before it.
  sql_error "contacts.txt: the value for field \"2\" holds 'Ł' (U+0141), which code page 437 lacks" \
    "BEGIN; UPDATE t SET \"3\" = '555-9999' WHERE \"1\" LIKE 'zo%';
    UPDATE t SET \"2\" = CASE WHEN \"2\" = 'Köln' THEN 'Łódź' ELSE 'somewhere' END;"
  printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE t USING mergedb('contacts.txt');" "BEGIN;" \
    "UPDATE t SET \"3\" = '555-9999' WHERE \"1\" LIKE 'zo%';" \
    "UPDATE t SET \"2\" = CASE WHEN \"2\" = 'Köln' THEN 'Łódź' ELSE 'somewhere' END;" "COMMIT;" |
    shell :memory: >/dev/null 2>&1
  [ "$("$tool" dump contacts.txt --field 2 --field 3 | paste -sd' ')" = \
    'Sevilla,555-0101 Köln,555-9999 Besançon,555-0103 Tórshavn,555-0104' ] || fail "commit: $("$tool" dump contacts.txt)"
  # Each statement commits on its own; the tool reads the result.
  sql '' "INSERT INTO p VALUES ('5', 'Ida', 'Bergen'); UPDATE p SET city = 'Wien' WHERE name LIKE 'zo%';
    DELETE FROM p WHERE city = 'Sevilla' OR id = '4';"
  [ "$("$tool" dump --header people.csv | paste -sd' ')" = 'id,name,city 1,Zoë,Wien 3,Ann,Oslo 5,Ida,Bergen' ] ||
    fail "edits: $("$tool" dump --header people.csv)"
  # 200 deletes or more, at which the driver would commit in the middle,
  # are made in one rewrite, with the updates and inserts of the same
  # transaction.
  seq 1 500 | sed 's/.*/&;r&/' >many.csv
  printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE m USING mergedb('many.csv');" "BEGIN;" \
    "DELETE FROM m WHERE \"1\" % 2 = 0;" "UPDATE m SET \"2\" = 'changed' WHERE \"1\" IN ('7', '499');" \
    "INSERT INTO m VALUES ('501', 'new');" "COMMIT;" | shell -bail :memory: || fail "the transaction of 250 deletes"
  [ "$("$tool" dump many.csv | sed -n '1p;4p;250,$p' | paste -sd' ')" = '1,r1 7,changed 499,changed 501,new' ] ||
    fail "250 deletes: $("$tool" dump many.csv | head -5)"
  [ "$("$tool" dump many.csv | wc -l)" -eq 251 ] && [ -z "$(ls ./mergedb-tmp-* ./*.bk 2>/dev/null)" ] ||
    fail "250 deletes left: $(ls)"
  # Another program that inserts while the rewrite runs waits for it: every
  # insert that it saw done is in the table afterwards.
  seq 1 60000 | sed 's/$/,row\r/' >race.csv
  host /usr/bin/python3 "$source/tests/sql/inserter.py" "$library" race.csv "$work/stop" >"$work/inserted" 2>&1 &
  until [ -s "$work/inserted" ] || ! kill -0 $! 2>/dev/null; do sleep 0.01; done
  "$tool" sql "DELETE FROM race WHERE \"1\" LIKE '%7'" || fail "the rewrite beside an inserter"
  touch "$work/stop"
  wait $!
  [[ "$(sed -n 2p "$work/inserted")" == "tried "[1-9]* ]] || fail "the inserter tried nothing: $(cat "$work/inserted")"
  inserted=$(tail -n +3 "$work/inserted")
  "$tool" dump race.csv --field 1 | sort >"$work/after"
  # Only the table's own rows are judged here: an insert named new7 may land
  # after the delete and stays.
  [ "$(grep -c '^[0-9]*7$' "$work/after")" -eq 0 ] || fail "the deletes beside an inserter: $(grep '7$' "$work/after" | head)"
  lost=$(tr ' ' '\n' <<<"$inserted" | sort | comm -23 - "$work/after" | wc -w)
  [ "$lost" -eq 0 ] || fail "$lost inserts that another program made meanwhile are lost"
  # What the table can't store is refused before anything is applied.
  cp contacts.doc before.doc
  sql_error "contacts.doc: the value for field \"Name\" holds 'Ž' (U+017D), and the driver writes only printable ASCII into a tagged document" \
    "INSERT INTO c VALUES ('Žofie', 'Brno', '1');"
  sql_error 'people.csv: the value for field "name" holds a NUL character (U+0000), at which the driver would cut the value short' \
    "UPDATE p SET name = 'a' || char(0) || 'b' WHERE id = '1';"
  sql_error 'contacts.doc: a rowid is the place of a record in the file; it can'"'"'t be given or changed' \
    "UPDATE c SET rowid = 7 WHERE Name LIKE 'z%';"
  # A backup beside a table refuses its changes: at the statement, or when
  # it comes later, at the commit, which checks every table that the
  # transaction changed before it writes any.
  cp people.csv before.csv
  backup='contacts.doc: contacts.bk lies beside it, left by a commit of it (or of another contacts.* table) that did not finish; a commit would fail on it, so nothing was changed. Run mergedb recover contacts.doc first'
  touch contacts.bk
  sql_error "$backup" "DELETE FROM c WHERE City = 'Köln';"
  rm contacts.bk
  sql_error "$backup" "BEGIN; UPDATE p SET city = 'Lund' WHERE id = '1'; DELETE FROM c WHERE City = 'Köln';
.system touch contacts.bk
COMMIT;"
  same contacts.doc before.doc
  same people.csv before.csv
  rm contacts.bk
  # One transaction changes a file through one table only.
  cp people.csv before.csv
  sql_error 'people.csv: is the same file as people.csv' "CREATE VIRTUAL TABLE temp.q USING mergedb('people.csv', header=yes);
BEGIN; UPDATE p SET city = 'A' WHERE id = '1'; UPDATE q SET city = 'B' WHERE id = '3'; COMMIT;"
  same people.csv before.csv
  # A table in a directory whose path holds a '.' is committed from inside
  # it, so that its backup is v1.0/people.bk, not v1.bk at the path's '.'.
  mkdir v1.0 && cp people.csv v1.0/ && touch v1.bk
  sql '' "CREATE VIRTUAL TABLE v USING mergedb('v1.0/people.csv', header=yes); UPDATE v SET city = 'Lund' WHERE id = '3';"
  "$tool" dump --header v1.0/people.csv | grep -q '^3,Ann,Lund$' || fail "a commit in v1.0: $("$tool" dump v1.0/people.csv)"
  rm -r v1.0 v1.bk
  # A failure once a table was written (no room on the disk of the next
  # one) says which tables were committed and which were not.
  if [ "$(id -u)" -eq 0 ] && mkdir "$work/disk" && mount -t tmpfs -o size=256k tmpfs "$work/disk" 2>/dev/null; then
    seq 1 3000 | sed 's/$/,some text\r/' >"$work/disk/full.csv"
    cp "$work/disk/full.csv" "$work/full.csv"
    dd if=/dev/zero of="$work/disk/fill" bs=4k 2>/dev/null
    got=$(run_sql "CREATE VIRTUAL TABLE f USING mergedb('$work/disk/full.csv'); BEGIN;
      UPDATE p SET city = 'Lund' WHERE id = '1'; UPDATE f SET \"2\" = 'x' WHERE \"1\" = '5'; COMMIT;")
    grep -qF "could not be written" <<<"$got" && grep -qF "Of this transaction, the changes to people.csv were committed; those to $work/disk/full.csv were not." <<<"$got" ||
      fail "a commit that fails half way: $got"
    same "$work/disk/full.csv" "$work/full.csv"
    [ "$("$tool" dump --header people.csv --field city | sed -n 2p)" = Lund ] || fail "the first table of a commit"
    umount "$work/disk"
  else
    echo "the commit onto a full disk is left out: mounting a tmpfs needs root"
  fi
  # An update is checked on the values it changes: the others may hold
  # what a tagged document can be read with but not written with.
  sql '' "UPDATE c SET Phone = '555-7777' WHERE Name LIKE 'zo%';"
  "$tool" dump contacts.doc | grep -qx 'Zoë Müller,Köln,555-7777' || fail "update beside 'ë': $("$tool" dump contacts.doc)"
  # A table that does not read whole is an error for a walk, a find (also
  # after a find that a LIMIT ended early), a walk back, a jump to a rowid
  # and an edit, and nothing is changed.
  printf 'a,b,c\r\n1,2\r\n3,4\r\n5,6,7\r\n' >short.csv
  printf 'a,b\r\n1,2\r\n3,4,5,6\r\n' >wide.csv
  cp short.csv before.csv && cp wide.csv before-wide.csv
  refused() {
    local file=$1 message=$2 statement got
    shift 2
    for statement in "$@"; do
      got=$(printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE s USING mergedb('$file');" "$statement" |
        shell -bail :memory: 2>&1)
      grep -qF "$file: $message" <<<"$got" || fail "$file: $statement: $got"
    done
  }
  refused short.csv 'record 2 at byte 7: has 2 fields, the table 3; it is left out' "SELECT * FROM s;" \
    "DELETE FROM s WHERE \"1\" = '4';" "SELECT * FROM s WHERE rowid = 12;" "UPDATE s SET \"1\" = 'x' WHERE rowid = 12;" \
    "SELECT * FROM s WHERE \"1\" LIKE 'a%' LIMIT 1; SELECT * FROM s WHERE \"1\" LIKE '4%';"
  refused wide.csv 'record 3 at byte 10: has 4 fields, the table 2; the driver reads only the first 2' \
    "SELECT rowid, * FROM s ORDER BY rowid DESC;" "SELECT * FROM s WHERE rowid = 10;" \
    "UPDATE s SET \"1\" = 'x' WHERE rowid = 10;"
  same short.csv before.csv
  same wide.csv before-wide.csv
}

test_Arguments() {
  for case in "|name the table's file: write mergedb('FILE', header=yes, field_delimiter=';', ...)" \
    "'missing.csv'|missing.csv: there is no such file" \
    "'people.csv', header=perhaps|people.csv: header takes yes or no, not 'perhaps'" \
    "'people.csv', colour=red|people.csv: unknown option 'colour'; the options are field_delimiter, record_delimiter, quote, ignore, encoding, header" \
    "'people.csv', field_delimiter=''|people.csv: field_delimiter can't be empty" \
    "'people.csv', encoding=latin9|people.csv: encoding names an unknown encoding 'latin9'; utf8, cp1252 or cp437"; do
    got=$(printf '%s\n' ".load $extension" "CREATE VIRTUAL TABLE x USING mergedb(${case%%|*});" | shell :memory: 2>&1)
    grep -qF -- "${case#*|}" <<<"$got" || fail "mergedb(${case%%|*}): $got"
  done
}

test_Python() {
  cp people.csv before.csv
  got=$(host /usr/bin/python3 "$source/tests/sql/sql_test.py" "$extension" people.csv 2>&1) || fail "python: $got"
  [ "$got" = 'rolled back: 4 records
committed: 6 records' ] || fail "python printed: $got"
  [ "$("$tool" dump --header people.csv | tail -2 | paste -sd' ')" = '5,Eve,Tromsø 6,Max,Tromsø' ] ||
    fail "python's inserts: $("$tool" dump --header people.csv)"
}

test_Tool() {
  got=$("$tool" sql --header --format json "SELECT p.name, c.Phone FROM people p JOIN contacts1 c ON c.City = p.city
    WHERE p.name LIKE 'Jo%'; SELECT count(*) AS n FROM \"contacts.doc\"" 2>&1)
  [ "$got" = '{"name":"José","Phone":"555-0101"}
{"n":"4"}' ] || fail "sql: $got"
  # contacts.doc and contacts.txt share a stem, which names neither.
  got=$("$tool" sql --db . 'SELECT * FROM contacts' 2>&1)
  [ $? -eq 1 ] && [ "$got" = 'mergedb: no such table: contacts' ] || fail "sql with a shared stem: $got"
  # A read of a table beside a backup says so, as the tool's other commands do.
  touch people.bk
  # The stem goes on naming the table, and never its backup alone.
  got=$("$tool" sql 'SELECT count(*) FROM people; SELECT 1 FROM "people.csv"' 2>&1 >/dev/null)
  [ "$got" = 'mergedb: people.csv: note: people.bk lies beside it, left by a commit of it (or of another people.* table) that did not finish; see mergedb recover people.csv' ] ||
    fail "sql beside a backup: $got"
  got=$("$tool" sql --header "UPDATE \"people.csv\" SET name = 'b' WHERE id = '1'" 2>&1)
  [ $? -eq 1 ] && [ "$(wc -l <<<"$got")" -eq 1 ] && grep -qF 'people.bk lies beside it' <<<"$got" ||
    fail "an update beside a backup: $got"
  mv people.csv people.txt.away
  got=$("$tool" sql 'SELECT * FROM people' 2>&1)
  [ $? -eq 1 ] && [ "$got" = 'mergedb: no such table: people' ] || fail "a backup read for its table: $got"
  mv people.txt.away people.csv
  rm people.bk
  # Options are checked before any statement runs.
  cp people.csv before.csv
  got=$("$tool" sql --format xml "UPDATE people SET city = 'Rome'; SELECT 1" 2>&1)
  [ $? -eq 2 ] && grep -qF "unknown format 'xml'" <<<"$got" || fail "sql --format xml: $got"
  same people.csv before.csv
  got=$("$tool" sql --header "UPDATE people SET city = 'Wien' WHERE rowid = 13; SELECT city FROM people LIMIT 1" 2>&1)
  [ "$got" = $'city\nWien' ] || fail "sql update: $got"
}

if [ -n "${SQL_PRELOAD:-}" ] && ! host sqlite3 :memory: ".load $extension" >/dev/null 2>&1; then
  echo "SKIPPED: the sqlite3 shell can't load the instrumented extension even with $SQL_PRELOAD first"
  exit 0
fi
"test_$group"
[ "$failures" -eq 0 ] || exit 1
echo "$group: passed"
