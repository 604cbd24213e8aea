#!/usr/bin/env bash
# Runs the built mergedb tool as a process on copies of the sample database
# and on tables written here, and checks output, exit status and files.
#
#   tool_test.sh GROUP TOOL SAMPLE_DIRECTORY
set -u
group=$1
tool=$2
sample=$3
work=$(mktemp -d)
trap 'chmod -R u+w "$work"; rm -rf "$work"' EXIT
out=$work/out
err=$work/err
mkdir "$work/db" && cd "$work/db" || exit 1
cp "$sample"/* .
failures=0

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# run ARGS...: stdout in $out, stderr in $err, the exit status in status.
run() {
  "$tool" "$@" >"$out" 2>"$err"
  status=$?
}

# expect STATUS OUTPUT ARGS...: OUTPUT with backslash escapes (\n, \t, \xHH).
expect() {
  local want_status=$1 want_out=$2
  shift 2
  run "$@"
  [ "$status" -eq "$want_status" ] || fail "$*: status $status, not $want_status: $(cat "$err")"
  printf '%b' "$want_out" | cmp -s - "$out" || fail "$*: output was: $(od -c "$out" | head -8)"
}

# expect_error STATUS TEXT ARGS...: nothing on stdout, and one line on
# stderr that holds TEXT.
expect_error() {
  local want_status=$1 text=$2
  shift 2
  run "$@"
  [ "$status" -eq "$want_status" ] || fail "$*: status $status, not $want_status: $(cat "$err")"
  [ ! -s "$out" ] || fail "$*: wrote to stdout: $(head -3 "$out")"
  [ "$(wc -l <"$err")" -eq 1 ] && grep -qF -- "$text" "$err" || fail "$*: stderr was: $(cat "$err")"
}

# told TEXT...: each TEXT is a line of the last run's stderr, after "mergedb: ".
told() {
  local line
  for line in "$@"; do grep -qxF -- "mergedb: $line" "$err" || fail "not told '$line'; stderr was: $(cat "$err")"; done
}

same() { cmp -s "$1" "$2" || fail "$1 and $2 differ: $(od -c "$1" | head -4) / $(od -c "$2" | head -4)"; }

# The sample's records as CSV.
records='José Núñez,Sevilla,555-0101
Zoë Müller,Köln,555-0102
François Gaël,Besançon,555-0103
"Ana, ""Annie"" Lee",Tórshavn,555-0104\n'

test_Sample() {
  expect 0 "contacts.doc\ttagged0\t3 fields\ncontacts.txt\ttext\t3 fields\t',' CR LF code page 437\ncontacts1.doc\ttagged1\t3 fields\n" \
    tables --long .
  expect 0 "Name,City,Phone\n$records" dump contacts.doc
  expect 0 "Name,City,Phone\n$records" dump contacts1.doc
  # Delimited text without --header has no names to show.
  expect 0 "$records" dump contacts.txt
  for table in contacts.doc:Phone contacts1.doc:phone contacts.txt:3; do
    expect 0 '555-0104\n555-0103\n555-0102\n555-0101\n' dump --reverse --no-header --field "${table#*:}" "${table%:*}"
  done
  expect 0 '{"1":"Ana, \\"Annie\\" Lee","2":"Tórshavn","3":"555-0104"}\n' find --format json contacts.txt '1=ana*'
  expect 0 'Name        City\n----------  ----\nZoë Müller  Köln\n' \
    find --format table --field name --field city contacts.doc 'City=k*' 'Phone=*'
  expect 0 '0\tName\n1\tCity\n2\tPhone\n' fields contacts1.doc
  printf '\xffZRN\x10\0\0\0\x01\x0a\0\0\0\0\0\0\x0e\n\xc3\x0c\xc3Name\xc4\x0c\xc412,34,56,78,\n' >numbered.doc
  printf '\xc3\x0c\xc3City\xc4\x0c\xc4\n\x12\n\x05\n' >>numbered.doc
  expect 0 '0\tName\t34,12,78,56\n1\tCity\n' fields numbered.doc
  run info .
  grep -qx 'subtype 3: Tagged documents' "$out" && grep -qx '  kind 44 (tagged1): Tagged document, dialect 1' "$out" &&
    grep -qx 'value size: 32000' "$out" || fail "info: $(cat "$out")"
}

# Delimiters, line ends and encodings found by looking at the file.
test_Sniff() {
  local want='Ann,Oslo\nBob,Rome\n' name
  printf 'Ann,Oslo\nBob,Rome\n' >lf.csv
  printf 'Ann;Oslo\r\nBob;Rome\r\n' >crlf.csv
  printf 'Ann\tOslo\rBob\tRome\r' >cr.tsv
  printf 'Ann|Oslo\nBob|Rome\n' >bar.txt
  for name in lf.csv crlf.csv cr.tsv bar.txt; do expect 0 "$want" dump "$name"; done
  run info cr.tsv
  grep -qx "field delimiter: tab (found)" "$out" && grep -qx "record delimiter: CR (found)" "$out" &&
    grep -qx "records: 2" "$out" && grep -qx "reads whole: yes" "$out" || fail "info: $(cat "$out")"
  # Options win over what is found.
  expect 0 'Ann;Oslo\nBob;Rome\n' dump --field-delimiter '|' --format csv crlf.csv
  # CR LF and LF mixed: LF ends records and CR is ignored, with a word.
  printf 'Ann,Oslo\r\nBob,Rome\nCy,Pisa\r\n' >mixed.csv
  expect 0 'Ann,Oslo\nBob,Rome\nCy,Pisa\n' dump mixed.csv
  told "mixed.csv: note: the line ends are mixed (2 CR LF, 1 LF); LF ends a record and CR is ignored. --record-delimiter names the one to take"
  printf 'Ann,Oslo\rBob,Rome\nCy,Pisa\n' >mixed2.csv
  expect_error 1 'the line ends are mixed (2 LF, 1 CR in the first 64 KiB)' dump mixed2.csv
  # A byte-order mark is no part of a value, and a header record no data.
  printf '\xef\xbb\xbfName;City\nJos\xc3\xa9;K\xc3\xb6ln\n' >bom.csv
  expect 0 'Name,City\nJosé,Köln\n' dump bom.csv
  expect 0 '{"Name":"José","City":"Köln"}\n' dump --header --format json bom.csv
  expect 0 'City\nKöln\n' find --header --field city bom.csv 'name=JOSÉ'
  expect 0 '0\tName\n1\tCity\n' fields --header bom.csv
  told "bom.csv: read as delimited text; field delimiter ';' (found); record delimiter LF (found); quote '\"'; ignore none; encoding UTF-8 (found), with a byte-order mark; field names from the first record (--header)"
  # A field's own name goes before one alike in case; a name of two fields
  # is refused; JSON keys are each once.
  printf 'Straße,a,,A,Ab,AB,d,d\n1,2,3,4,5,6,7,8\n' >case.csv
  expect 0 'updated 1 record\n' update --header case.csv --where a=2 --set A=x
  expect 0 '{"Straße":"1","a":"2","":"3","A":"x","Ab":"5","AB":"6","d":"7","d_2":"8"}\n' dump --header --format json case.csv
  expect_error 1 "the field name 'ab' fits several fields that differ only in case: 'Ab' (field 5), 'AB' (field 6)" \
    find --header case.csv ab=5
  expect_error 1 "has 2 fields named 'd' (fields 7, 8); name the one meant by its number" find --header case.csv d=7
  # A byte that is no UTF-8 behind the first 64 KiB, where the look at the
  # start did not reach.
  { seq 4000 | sed 's/$/,café au lait/'; printf 'x,\xe9\n'; } >late.csv
  run info late.csv
  grep -qx 'reads whole: no, 1 problem (on stderr)' "$out" || fail "info late.csv: $(cat "$out")"
  # Windows-1252's quotation marks, apostrophe, dash and euro sign, which
  # code page 437 would read as letters; and code page 437's own letters.
  printf 'Note\r\nDon\x92t\r\nHe said \x93yes\x94\r\n\x80 5 and 1990 \x96 2000\r\n' >smart.csv
  expect 0 'Note\nDon’t\nHe said “yes”\n€ 5 and 1990 – 2000\n' dump --header smart.csv
  # A quote inside a value, as the driver writes and reads it, is no quote
  # that closes before the field delimiter.
  printf 'item;size;note\r\n"cake";"8";"c,d"\r\n"pie";"9";"e,f"\r\n' >inch.csv
  expect 0 'updated 1 record\n' update --header inch.csv --where item=cake --set 'size=8" round'
  expect 0 'item,size,note\ncake,"8"" round","c,d"\npie,9,"e,f"\n' dump --header inch.csv
  printf 'Stadt\r\nK\x94ln\r\nsch\x94n.\r\n\x93ter\r\n' >dos.csv
  expect 0 'Stadt\nKöln\nschön.\nôter\n' dump --header dos.csv
  printf '\xff\xfeA\0' >utf16.csv
  expect_error 1 'begins with a UTF-16 byte-order mark' dump utf16.csv
}

test_Text() {
  # UTF-8 text goes in and out byte for byte; values from the command line
  # land in the table's encoding.
  printf 'Name,City\n"Zoë","Köln"\n' >utf8.csv
  expect 0 'updated 1 record\n' update --header utf8.csv --where name=zoë --set City=Zürich
  printf 'Name,City\n"Zoë","Zürich"\n' | cmp -s - utf8.csv || fail "utf8.csv: $(od -c utf8.csv)"
  printf 'Name,City\r\n"Jos\xe9","K\xf6ln"\r\n' >ansi.csv
  expect 0 '{"Name":"José","City":"Köln"}\n' dump --header --format json ansi.csv
  expect 0 'inserted 1 record\n' insert --header ansi.csv Name=Zoë 'City=€uro'
  printf 'Name,City\r\n"Jos\xe9","K\xf6ln"\r\n"Zo\xeb","\x80uro"\r\n' | cmp -s - ansi.csv || fail "ansi.csv: $(od -c ansi.csv)"
  expect_error 2 "holds 'ą' (U+0105), which Windows-1252 lacks; --lossy stores '?' for it" \
    insert --header ansi.csv Name=ą
  expect 0 'inserted 1 record\n' insert --lossy contacts.txt 1=ąb 2=x 3=€
  expect 0 '?b,x,?\n' find contacts.txt 2=x
  run dump --encoding utf8 contacts.txt
  [ "$status" -eq 1 ] && grep -q '^Jos� N��ez,Sevilla,555-0101$' "$out" || fail "not UTF-8: $(head -2 "$out")"
  told "contacts.txt: record 1 at byte 0: holds bytes that are not UTF-8 (shown as U+FFFD); if the file is in another page, name it with --encoding cp1252 or --encoding cp437"
  # A tagged document holds what the driver writes there: printable ASCII.
  expect_error 2 "holds 'ë' (U+00EB), and the driver writes only printable ASCII into a tagged document" \
    insert contacts.doc Name=Zoë
  expect 0 'inserted 1 record\n' insert --lossy contacts.doc Name=Zoë City=Wien
  expect 0 'Zo?,Wien,\n' find --no-header contacts.doc city=wien
  # Columns of the table format line up by the columns a terminal gives
  # each character; the ignored string goes outside quotes only; JSON
  # escapes control characters.
  printf ' a b ,"c d"\r\n"t\tu",ü\r\n"日本",e\xcc\x81\r\n' >ignore.txt
  expect 0 'ab    c d\nt u   ü\n日本  e\xcc\x81\n' dump --format table --ignore '\x20' ignore.txt
  expect 0 '{"1":"t\\u0009u","2":"ü"}\n' find --format json --ignore ' ' ignore.txt 2=Ü
}

# Never silent: what the driver does not read is told, and a reading
# command then fails unless --partial.
test_Whole() {
  printf 'Ann,Oslo\r\nBob,Rome' >open.csv
  expect 1 'Ann,Oslo\n' dump open.csv
  told "open.csv: record 2 at byte 10: the last 8 bytes have no record delimiter (CR LF) behind them, so the driver reads no record there (insert --fix-end adds one)"
  expect 0 'Ann,Oslo\n' dump --partial open.csv
  # An insert checks everything before it changes a byte, --fix-end too.
  local half
  half=$(head -c 15000 /dev/zero | tr '\0' x)
  cp open.csv before.csv
  expect_error 1 'its last record has no record delimiter (CR LF) behind it' insert open.csv 1=Cy 2=Pisa
  expect_error 1 'the new record would be longer than the 28672 bytes' insert --fix-end open.csv 1="$half" 2="$half"
  same before.csv open.csv
  # A mend that the file size limit cuts short is taken back.
  { printf 'a,b\r\n'; head -c 2040 /dev/zero | tr '\0' x; printf ',y'; } >limit.csv
  cp limit.csv before-limit.csv
  (trap '' XFSZ; ulimit -f 2; "$tool" insert --fix-end limit.csv 1=a 2=b 2>/dev/null) && fail "a mend past the size limit"
  same before-limit.csv limit.csv
  expect 0 'inserted 1 record\n' insert --fix-end open.csv 1=Cy 2=Pisa
  printf 'Ann,Oslo\r\nBob,Rome\r\n"Cy","Pisa"\r\n' | cmp -s - open.csv || fail "open.csv: $(od -c open.csv)"
  # A record over the driver's limit is passed over, and the walk goes on.
  { printf 'a,b\r\nc,'; head -c 30000 /dev/zero | tr '\0' x; printf '\r\ne,f\r\n'; } >long.csv
  expect 1 'a,b\ne,f\n' dump long.csv
  told "long.csv: record 2 at byte 5: has 30004 bytes, more than the 28672 bytes of the longest record that the driver reads; it is left out"
  printf 'a,b\r\n"c,d\r\ne,f\r\n' >quote.csv
  expect 1 'a,b\n' find quote.csv 1=*
  told "quote.csv: record 2 at byte 5: the quote at byte 5 does not close, so the driver reads no record from here to the end of the file (11 bytes)"
  expect 1 'a,b\n' dump --reverse quote.csv
  cp quote.csv before.csv
  expect 1 '' insert quote.csv 1=x
  told "quote.csv: was not read whole (told above), so nothing was changed; make it read whole first"
  same before.csv quote.csv
  printf 'a,b\nc,d,e\nf\n\ng,h\n' >ragged.csv
  expect 1 'a,b\nc,d\ng,h\n' dump ragged.csv
  told "ragged.csv: record 2 at byte 4: has 3 fields, the table 2; the driver reads only the first 2" \
    "ragged.csv: record 3 at byte 10: has 1 field, the table 2; it is left out" \
    "ragged.csv: record 4 at byte 12: is an empty line, a record of 1 field to the driver, the table 2; it is left out" \
    "ragged.csv: was not read whole (3 problems, told above); --partial accepts what was read"
  seq -s, 1001 >wide.csv
  expect_error 1 'Its first record, which names or counts the fields, has more than the 1000 that the driver takes.' \
    dump wide.csv
  printf 'id,name\n1,ab\0cd\n2,x\n' >nul.csv
  expect 1 'id,name\n1,ab\n2,x\n' dump --header nul.csv
  told "nul.csv: record 1 at byte 8: holds a NUL byte at byte 12, where the driver ends the value; the rest of that value is not read"
  expect 1 'g,h\nc,d\na,b\n' dump --reverse ragged.csv
  told "ragged.csv: was not read whole (3 problems, told above); --partial accepts what was read"
  run convert ragged.csv no.doc --kind tagged0
  [ "$status" -eq 1 ] && [ ! -s "$out" ] && [ ! -e no.doc ] || fail "a convert of a ragged table: $(ls; cat "$err")"
  # A damaged record in the middle of a tagged document ends the driver's
  # walk there.
  head -c 160 contacts.doc >damaged.doc
  printf '\xc8' >>damaged.doc
  tail -c +162 contacts.doc >>damaged.doc
  expect 1 'José Núñez,Sevilla,555-0101\n' dump --no-header damaged.doc
  told "damaged.doc: record 2 at byte 158: holds a byte at 160 that no record of a tagged document may hold, so the driver reads nothing from here on"
  expect 0 'José Núñez,Sevilla,555-0101\n' dump --reverse --partial --no-header damaged.doc
  cp damaged.doc before.doc
  run update damaged.doc --where name=j* --set city=x
  [ "$status" -eq 1 ] && told "damaged.doc: was not read whole (told above), so nothing was changed; make it read whole first"
  same before.doc damaged.doc
}

# Files that are no tables, links, sizes, names and standard input.
test_Files() {
  mkfifo pipe.txt
  timeout -s KILL 10 "$tool" dump pipe.txt >"$out" 2>"$err"
  [ $? -eq 1 ] && told 'pipe.txt: is a FIFO (a named pipe), not a table file'
  timeout -s KILL 10 "$tool" tables --long . >"$out" 2>"$err"
  grep -qxF "$(printf 'pipe.txt\tnot a table: is a FIFO (a named pipe), not a table file')" "$out" || fail "tables: $(cat "$out" "$err")"
  rm pipe.txt
  mkdir -p 'dir with spaces/real.d'
  cp contacts.txt 'dir with spaces/real.d/customer_contacts_2024.csv'
  expect 0 'customer_contacts_2024.csv\n' tables 'dir with spaces/real.d/'
  ln -s 'dir with spaces/real.d/customer_contacts_2024.csv' link.csv
  expect 0 'updated 1 record\n' update link.csv --where '1=jos*' --set 2=Madrid
  [ -L link.csv ] && grep -q Madrid 'dir with spaces/real.d/customer_contacts_2024.csv' || fail "the edit missed the link's target"
  truncate -s 4294967295 huge.txt
  expect_error 1 'huge.txt: is 4.0 GiB (4294967295 bytes); the driver reads tables of at most 4294967294 bytes' \
    dump huge.txt
  rm huge.txt
  expect_error 1 "the name holds '€' (U+20AC), which code page 437" dump 'x€.csv'
  cp contacts.txt café.csv
  expect 0 "$records" dump café.csv
  cp contacts.txt 'a–b.csv'
  cp contacts.txt m.txt  # listed behind link.csv, which leads into another directory
  run tables --long .
  grep -qxF "$(printf "café.csv\ttext\t3 fields\t',' CR LF code page 437")" "$out" &&
    grep -qxF "$(printf "m.txt\ttext\t3 fields\t',' CR LF code page 437")" "$out" &&
    grep -qx "a.b.csv.not a table: its name holds characters that the driver's code pages lack" "$out" ||
    fail "tables: $(cat "$out")"
  rm 'a–b.csv'
  cat contacts1.doc | expect 0 'Name,City\nJosé Núñez,Sevilla\n' find --field 1 --field 2 - 'Name=jos*'
  expect_error 2 'standard input (-) can be read, not changed' delete - --where 1=a
  # Standard input is kept under TMPDIR while it is read, and goes when the
  # tool ends, by a signal too.
  mkdir spool && mkfifo in.fifo
  TMPDIR=/nonexistent expect_error 1 "standard input: can't be kept in a file in TMPDIR (/nonexistent)" dump - <contacts.txt
  # The shell that runs this may have been handed SIGTERM ignored or
  # blocked, and would pass that on: python3 gives the tool the default.
  TMPDIR=$PWD/spool python3 -c 'import os, signal, sys
signal.pthread_sigmask(signal.SIG_UNBLOCK, [signal.SIGTERM])
signal.signal(signal.SIGTERM, signal.SIG_DFL)
os.execv(sys.argv[1], sys.argv[1:])' "$tool" dump - <in.fifo >/dev/null 2>&1 &
  local spooler=$!
  exec 4>in.fifo
  until [ -n "$(ls spool)" ] || ! kill -0 "$spooler" 2>/dev/null; do sleep 0.1; done
  kill -TERM "$spooler"
  exec 4>&-  # the end of its input ends the tool should the signal not
  wait "$spooler"
  [ $? -eq 143 ] || fail "the tool reading standard input did not end by SIGTERM"
  [ -z "$(ls spool)" ] || fail "standard input was left in $(ls spool)"
  # A commit keeps the table's permission bits, and so does a rewrite.
  cp contacts.txt private.txt && chmod 600 private.txt
  expect 0 'updated 1 record\n' update private.txt --where 1=zo* --set 2=Bonn
  [ "$(stat -c %a private.txt)" = 600 ] || fail "update: private.txt became $(stat -c %a private.txt)"
  # A file without a write bit is read-only to the driver, root's too, and
  # an edit is refused before anything is touched.
  cp contacts.txt ro.txt && chmod 444 ro.txt
  expect_error 1 'ro.txt: is read-only: it has no write permission bit' update ro.txt --where 1=jos* --set 2=x
  same contacts.txt ro.txt
  [ ! -e ro.bk ] || fail "a read-only table left a backup"
  # A table that another process holds (a dump that waits for its reader)
  # is told to be held.
  seq 5000 | sed 's/$/,a record that fills a pipe\r/' >held.txt
  mkfifo started
  "$tool" dump held.txt | { IFS= read -r _; echo >started; exec sleep 60; } &
  local reader=$!
  read -r _ <started
  expect_error 1 'held.txt: The table file could not be opened. The table is held by another process' \
    update held.txt --where 1=1 --set 2=x
  kill -KILL "$reader"
  wait
}

test_Edits() {
  for kind in tagged0 tagged1 text; do
    if [ $kind = text ]; then
      table=edits.txt
      expect 0 'created edits.txt: delimited text with a header record of the fields Name, City (read it with --header)\n' \
        create $table --kind text --field Name --field City
    else
      table=$kind.doc
      expect 0 "created $table: a tagged document of dialect ${kind#tagged} with the fields Name, City\n" \
        create $table --kind $kind --field Name --field City
    fi
    expect 0 'inserted 1 record\n' insert --header $table Name=Ann City=Oslo
    expect 0 'inserted 1 record\n' insert --header $table Name='Bob "B"' City='Rome, Italy'
    expect 0 'inserted 1 record\n' insert --header $table Name=Cy
    expect 0 'inserted 1 record\n' insert --header $table Name=Dee City=
    expect 0 'Name,City\n"Bob ""B""","Rome, Italy"\n' find --header $table "City=r*"
    expect 0 'Name,City\nCy,\nDee,\n' find --header $table --blank City
    # An empty --set value empties the field.
    expect 0 'updated 2 records\n' update --header $table --blank City --set Name= --set City=Lima
    expect 0 'updated 1 record\n' update --header $table --where "City=*italy" --set Name=Bo
    expect 0 'deleted 1 record\n' delete --header $table --where "Name=ANN"
    expect 0 'Name,City\nBo,"Rome, Italy"\n,Lima\n,Lima\n' dump --header $table
    [ -z "$(ls ./*.bk 2>/dev/null)" ] || fail "$kind: a backup was left"
  done
  # Safe edits: a dry run changes nothing; an example that fits every
  # record needs --all; a '*' in front is a suffix, not everything.
  cp contacts.doc before.doc
  expect 0 "record 2 at byte 158: City 'Köln' -> 'Wien'\nwould update 1 record\n" \
    update contacts.doc --where 'Name=*ller' --set City=Wien --dry-run
  expect 0 "record 2 at byte 158: Zoë Müller,Köln,555-0102\nwould delete 1 record\n" \
    delete contacts.doc --where 'Name=*ller' --dry-run
  same before.doc contacts.doc
  expect_error 1 'the example fits all 4 records; give --all to delete every record' delete contacts.doc --where 'Name=*'
  expect 0 'deleted 1 record\n' delete contacts.doc --where 'Name=*ller'
  expect 0 'José Núñez\nFrançois Gaël\nAna, "Annie" Lee\n' dump --format table --no-header --field name contacts.doc
  expect 0 'updated 3 records\n' update contacts.doc --where 'Name=*' --set Phone=0 --all
  # Many deletes: one rewrite that keeps every other byte as it was, and the
  # table's permission bits.
  for i in $(seq 1 1000); do
    if ((i % 4)); then printf '%d;drop %d\n' "$i" "$i"; else printf '%d;"keep;%d"\n' "$i" "$i"; fi
  done >many.csv
  grep -v drop many.csv >want.csv
  chmod 640 many.csv
  expect 0 'deleted 750 records, in one rewrite of the table\n' delete many.csv --where '2=drop*'
  same want.csv many.csv
  # A table of four of the pieces (1 MiB) that a rewrite reads at once, in
  # records of 100 bytes: the records across the first two edges go, the
  # one across the third stays, and more than two pieces' worth is kept, so
  # that the buffer of kept bytes fills and is written twice, in the middle
  # of a kept stretch.
  awk 'BEGIN {
    pad = sprintf("%87s", "")
    for (i = 1; i <= 40000; i++) {
      start = (i - 1) * 100
      across = 0
      for (edge = 1; edge <= 3; edge++) if (start < edge * 1048576 && edge * 1048576 < start + 100) across = edge
      drop = across == 1 || across == 2 || (across == 0 && i % 3 == 1)
      printf "%06d;%s;%s\n", i, drop ? "drop" : "keep", pad
    }
  }' >big.csv
  grep -v ';drop;' big.csv >want.csv
  expect 0 'deleted 13335 records, in one rewrite of the table\n' delete big.csv --where 2=drop
  same want.csv big.csv
  # The temporary file of a rewrite whose process is gone is no table, and
  # is told.
  true &
  local gone=$!
  wait "$gone"
  cp many.csv "mergedb-tmp-$gone-0.many.csv"
  local leftover="note: in the directory lies mergedb-tmp-$gone-0.many.csv, left by a rewrite or convert that was cut short (the process that made it is gone); no table needs it, and it may be removed"
  run tables .
  ! grep -q mergedb-tmp "$out" && told ".: $leftover" || fail "tables: $(cat "$out")"
  expect 0 'would delete 0 records\n' delete many.csv --where 1=0 --dry-run
  told "many.csv: $leftover"
  rm mergedb-tmp-*
  [ "$(stat -c %a many.csv)" = 640 ] || fail "the rewrite made many.csv $(stat -c %a many.csv)"
  # A tagged document keeps its head record, numbers and all.
  local head='\xffZRN\x10\0\0\0\x01\x0a\0\0\0\0\0\0\x0e\n\xc3\x0c\xc3Name\xc4\x0c\xc41,2,3,4,\n\xc3\x0c\xc3City\xc4\x0c\xc4\n\x12\n\x05\n'
  printf "$head" >numbered.doc
  printf "$head" >kept.doc
  for i in $(seq 1 300); do
    if ((i % 3)); then printf 'n%d\x12\ndrop\x12\n\x05\n' "$i"; else printf 'n%d\x12\nkeep\x12\n\x05\n' "$i" | tee -a kept.doc; fi
  done >>numbered.doc
  expect 0 'deleted 200 records, in one rewrite of the table\n' delete numbered.doc --where City=drop
  same kept.doc numbered.doc
}

test_Convert() {
  printf '"Ann","Oslo, N"\r\n"Bob "B" Ray","Rome"\r\n"Cy",""\r\n' >r.text
  local want='Ann,"Oslo, N"\n"Bob ""B"" Ray",Rome\nCy,\n'
  expect 0 'converted 3 records\n' convert r.text r.tagged0 --kind tagged0
  expect 0 'converted 3 records\n' convert r.text r.tagged1 --kind tagged1
  for from in tagged0 tagged1 text; do
    for to in tagged0 tagged1 text; do
      [ $from = $to ] && continue
      expect 0 'converted 3 records\n' convert r.$from to.$to --kind $to --no-header
      expect 0 "$want" dump --no-header to.$to
      rm -f to.$to
    done
  done
  # A tagged document to UTF-8 CSV with a header record, and back.
  expect 0 'converted 4 records and a header record of the field names\n' convert contacts.doc contacts.csv --kind text
  expect 0 "Name,City,Phone\n$records" dump --header contacts.csv
  expect 0 'converted 4 records and a header record of the field names\n' convert contacts1.doc tab.txt --kind text \
    --to-field-delimiter '\t' --to-record-delimiter '\n' --to-quote '' --to-encoding cp437
  printf 'Name\tCity\tPhone\nJos\x82 N\xa3\xa4ez\tSevilla\t555-0101\nZo\x89 M\x81ller\tK\x94ln\t555-0102\n' >want.tab
  printf 'Fran\x87ois Ga\x89l\tBesan\x87on\t555-0103\nAna, "Annie" Lee\tT\xa2rshavn\t555-0104\n' >>want.tab
  same want.tab tab.txt
  local before
  before=$(ls)
  expect_error 1 "record 1, field 1: the value holds 'é' (U+00E9)" convert contacts.txt x.doc --kind tagged0
  expect_error 1 'see the --to- options' convert contacts.doc x.txt --kind text --to-quote ''
  expect_error 1 'is there already' convert contacts.txt contacts.doc --kind tagged0
  [ "$(ls)" = "$before" ] || fail "a failed convert left files: $(ls)"
  expect 0 'converted 4 records\n' convert contacts.txt x.doc --kind tagged1 --lossy
  expect 0 'Zo? M?ller,K?ln,555-0102\n' find --no-header x.doc 2=k*
}

# A backup beside a table is a commit that did not finish.
test_Recover() {
  expect 0 'nothing to recover: there is no contacts.bk beside contacts.txt\n' recover contacts.txt
  mkdir sub.d
  local table backup cut
  for table in contacts.doc contacts1.doc contacts.txt; do
    backup=${table%%.*}.bk
    cp $table sub.d/$backup
    expect_error 1 "there is no such file, but $backup lies beside it" dump sub.d/$table
    expect 0 "restored sub.d/$table from $backup (4 records)\n" recover sub.d/$table
    same $table sub.d/$table
    for cut in 0 20 130 $(($(wc -c <$table) - 3)); do
      cp $table sub.d/$backup
      head -c $cut $table >sub.d/$table
      expect 0 "put $backup back as sub.d/$table (4 records): the table could not be shown to be the whole result of a commit; what stood there is kept as $table.partial\n" \
        recover sub.d/$table
      same $table sub.d/$table
      rm sub.d/$table.partial
    done
  done
  # A backup of another kind of table belongs to another table.
  cp contacts.doc sub.d/contacts.bk
  expect_error 1 'contacts.bk is the backup of a tagged document, and sub.d/contacts.txt is delimited text: it belongs to contacts.doc' \
    recover sub.d/contacts.txt
  # A leftover backup is told by commands that read, and stops edits.
  expect 0 "$records" dump sub.d/contacts.txt
  told "sub.d/contacts.txt: note: contacts.bk lies beside it, left by a commit of it (or of another contacts.* table) that did not finish; see mergedb recover sub.d/contacts.txt"
  expect_error 1 'contacts.bk lies beside it' update sub.d/contacts.txt --where 1=jos* --set 2=x
  same contacts.txt sub.d/contacts.txt
  rm sub.d/contacts.bk
  mkfifo sub.d/contacts.bk
  timeout -s KILL 10 "$tool" recover sub.d/contacts.txt >"$out" 2>"$err"
  [ $? -eq 1 ] && told 'contacts.bk: is a FIFO (a named pipe), not a table file'
  rm sub.d/contacts.bk
  # A table that is the whole result of its commit ends as its backup does.
  for i in $(seq 1 3000); do printf '"%d","record %d of a long table"\r\n' "$i" "$i"; done >big.txt
  cp big.txt sub.d/big.bk
  sed '1s/record 1 of/changed/' big.txt >sub.d/big.txt
  expect 0 'sub.d/big.txt is the whole result of its commit (it reads whole and ends as big.bk does); removed big.bk, the old table\n' \
    recover sub.d/big.txt
  [ ! -e sub.d/big.bk ] && grep -q changed sub.d/big.txt || fail "a whole result was not kept"
  # The same where the backup's whole path is longer than the driver takes.
  local long=sub.d/$(printf 'd%.0s' {1..80})/$(printf 'n%.0s' {1..170})
  mkdir "${long%/*}" && cp sub.d/big.txt "$long.txt" && cp big.txt "$long.bk"
  run recover "$long.txt"
  [ "$status" -eq 0 ] && [ ! -e "$long.bk" ] || fail "recover of a long path: $(cat "$err")"
}

test_Usage() {
  expect_error 2 'no command given'
  expect_error 2 'unknown command' frob
  expect_error 2 'missing TABLE' dump
  expect_error 2 'unexpected argument' dump a.txt b.txt
  expect_error 2 'unknown option --frob' dump --frob contacts.txt
  expect_error 2 'unknown format' dump --format xml contacts.txt
  expect_error 2 'needs a value' dump contacts.txt --field
  expect_error 2 'takes no value' dump --reverse=yes contacts.txt
  expect_error 2 'bad escape' dump --quote '\q' contacts.txt
  expect_error 2 'bad escape' dump --field-delimiter '\x00' contacts.txt
  expect_error 2 "can't be empty" dump --record-delimiter '' contacts.txt
  expect_error 2 'at most 4 bytes' dump --quote '"""""' contacts.txt
  expect_error 2 'unknown encoding' dump --encoding latin9 contacts.txt
  expect_error 1 'names no table file' dump sub/
  expect_error 1 'the name is 300 bytes long; the driver takes at most 255' dump "$(printf 'x%.0s' $(seq 1 300))"
  expect_error 2 'nothing to look for' find contacts.txt
  expect_error 2 'expected NAME=' find contacts.txt Name
  expect_error 2 'an empty pattern' find contacts.txt Name=
  expect_error 2 'the pattern for 1 holds bytes that are not UTF-8' find contacts.txt 1=$'\xe9'*
  expect_error 2 'nothing to change' update contacts.txt --where 1=a
  expect_error 2 'nothing to look for' delete contacts.txt
  expect_error 2 'quote next to a delimiter' insert contacts.txt 1='a",b'
  expect 0 'created empty.txt: an empty delimited text file; its first insert gives it its fields\n' \
    create empty.txt --kind text
  expect_error 2 'no fields yet' insert empty.txt Name=x
  expect_error 2 'missing --kind' create new.doc --field a
  expect_error 2 'unknown kind' create new.doc --kind tagged2 --field a
  expect_error 2 'at least one --field' create new.doc --kind tagged0
  expect_error 2 "holds a '~'" create new.doc --kind tagged1 --field 'a~b'
  expect_error 2 'given twice' create new.doc --kind tagged0 --field a --field A
  expect_error 2 'missing SOURCE TARGET' convert contacts.txt
  [ ! -e new.doc ] && [ ! -e new.txt ] || fail "a usage error made a file"
  expect_error 1 'missing.txt: there is no such file' dump missing.txt
  expect_error 1 'missing: there is no such directory' tables missing
  expect_error 1 "has no field 'Fax'; its fields are Name, City, Phone" dump --field Fax contacts.doc
  run dump --help
  [ "$status" -eq 0 ] && grep -q '^Usage: mergedb dump TABLE' "$out" || fail "dump --help"
  # Progress goes to a terminal only, never between the records.
  for i in $(seq 1 2500); do printf '"r%d"\r\n' "$i"; done >long.txt
  run dump long.txt
  [ ! -s "$err" ] || fail "progress shown on a pipe: $(cat "$err")"
  script -qec "'$tool' dump long.txt >/dev/null" /dev/null >"$out"
  grep -q 'dump: 2000 records' "$out" || fail "no progress on a terminal: $(od -c "$out" | head -3)"
}

"test_$group"
[ "$failures" -eq 0 ]
