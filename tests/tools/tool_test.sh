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
trap 'rm -rf "$work"' EXIT
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
  [ "$status" -eq "$want_status" ] || fail "$*: status $status, not $want_status"
  [ ! -s "$out" ] || fail "$*: wrote to stdout"
  [ "$(wc -l <"$err")" -eq 1 ] && grep -qF -- "$text" "$err" || fail "$*: stderr was: $(cat "$err")"
}

# The sample's records as CSV, in code page 437.
records='Jos\x82 N\xa3\xa4ez,Sevilla,555-0101
Zo\x89 M\x81ller,K\x94ln,555-0102
Fran\x87ois Ga\x89l,Besan\x87on,555-0103
"Ana, ""Annie"" Lee",T\xa2rshavn,555-0104\n'

test_Sample() {
  expect 0 'contacts.doc\ttagged0\t3 fields\ncontacts.txt\ttext\t3 fields\ncontacts1.doc\ttagged1\t3 fields\n' \
    tables --long .
  expect 0 "Name,City,Phone\n$records" dump contacts.doc
  expect 0 "Name,City,Phone\n$records" dump contacts1.doc
  expect 0 "1,2,3\n$records" dump contacts.txt
  for table in contacts.doc:Phone contacts1.doc:phone contacts.txt:3; do
    expect 0 '555-0104\n555-0103\n555-0102\n555-0101\n' dump --reverse --no-header --field "${table#*:}" "${table%:*}"
  done
  expect 0 '{"1":"Ana, \\"Annie\\" Lee","2":"Tórshavn","3":"555-0104"}\n' find --format json contacts.txt '1=ana*'
  expect 0 'Name        City\n----------  ----\nZoë Müller  Köln\n' \
    find --utf8 --format table --field name --field city contacts.doc 'City=k*' 'Phone=*'
  expect 0 '0\tName\n1\tCity\n2\tPhone\n' fields contacts1.doc
  printf '\xffZRN\x10\0\0\0\x01\x0a\0\0\0\0\0\0\x0e\n\xc3\x0c\xc3Name\xc4\x0c\xc412,34,56,78,\n' >numbered.doc
  printf '\xc3\x0c\xc3City\xc4\x0c\xc4\n\x12\n\x05\n' >>numbered.doc
  expect 0 '0\tName\t34,12,78,56\n1\tCity\n' fields numbered.doc
  run info .
  grep -qx 'subtype 3: Tagged documents' "$out" && grep -qx '  kind 44 (tagged1): Tagged document, dialect 1' "$out" &&
    grep -qx 'value size: 32000' "$out" || fail "info: $(cat "$out")"
}

test_Text() {
  printf 'no line end' >junk.dat
  expect 0 'contacts.doc\ncontacts.txt\ncontacts1.doc\njunk.dat\n' tables .
  run tables --long .
  grep -qxF "$(printf 'junk.dat\tnot a table: The end of the file was reached.')" "$out" || fail "tables: $(cat "$out")"
  # The file holds Windows-1252 text, which the driver converts to and from
  # code page 437.
  printf '"Jos\xe9","K\xf6ln"\r\n' >ansi.txt
  expect 0 'Jos\x82,K\x94ln\n' dump --no-header --ansi ansi.txt
  expect 0 'inserted 1 record\n' insert --ansi --utf8 ansi.txt 1=Zoë 2=Wien
  printf '"Jos\xe9","K\xf6ln"\r\n"Zo\xeb","Wien"\r\n' | cmp -s - ansi.txt || fail "ansi.txt: $(od -c ansi.txt)"
  # The ignored string goes outside quotes only. Control characters are
  # escaped in JSON and blanks in the columns of the table format.
  printf ' a b ,"c d"\r\n"t\tu",x\r\n' >ignore.txt
  expect 0 'ab,c d\nt\tu,x\n' dump --no-header --ignore ' ' ignore.txt
  expect 0 '{"1":"t\\u0009u","2":"x"}\n' find --format json --ignore ' ' ignore.txt 2=x
  expect 0 'ab   c d\nt u  x\n' dump --format table --no-header --ignore '\x20' ignore.txt
}

test_Edits() {
  for kind in tagged0 tagged1 text; do
    if [ $kind = text ]; then
      table=edits.txt a=1 b=2
      expect 0 '' create $table --kind text
    else
      table=$kind.doc a=Name b=City
      expect 0 '' create $table --kind $kind --field Name --field City
    fi
    expect 0 'inserted 1 record\n' insert $table $a=Ann $b=Oslo
    expect 0 'inserted 1 record\n' insert $table $a='Bob "B"' $b='Rome, Italy'
    expect 0 'inserted 1 record\n' insert $table $a=Cy
    expect 0 'inserted 1 record\n' insert $table $a=Dee $b=
    expect 0 "$a,$b\n\"Bob \"\"B\"\"\",\"Rome, Italy\"\n" find $table "$b=r*"
    expect 0 "$a,$b\nCy,\nDee,\n" find $table --blank $b
    # An empty --set value must not make its field part of the example:
    # the second record still fits.
    expect 0 'updated 2 records\n' update $table --blank $b --set $a= --set $b=Lima
    expect 0 'updated 1 record\n' update $table --where "$b=rome*" --set $a=Bo
    expect 0 'deleted 1 record\n' delete $table --where "$a=ANN"
    expect 0 "$a,$b\nBo,\"Rome, Italy\"\n,Lima\n,Lima\n" dump $table
    [ -z "$(ls ./*.bk 2>/dev/null)" ] || fail "$kind: a backup was left"
  done
  expect 0 'inserted 1 record\n' insert --utf8 contacts.txt 1='Zoë Öz' 2=Wien 3=1
  expect 0 'Zo\x89 \x99z,Wien,1\n' find --no-header contacts.txt 3=1
  # The driver rewrites the table at every 200th delete and forgets the
  # search there; the rest must still be found, and only they.
  for i in $(seq 1 300); do
    if ((i % 6)); then printf '"drop%d"\r\n' "$i"; else printf '"keep%d"\r\n' "$i"; fi
  done >many.txt
  expect 0 'deleted 250 records\n' delete many.txt --where '1=drop*'
  run dump --no-header many.txt
  [ "$(grep -c keep "$out")" -eq 50 ] && [ "$(wc -l <"$out")" -eq 50 ] || fail "delete across the rewrite"
}

test_Convert() {
  printf '"Ann","Oslo, N"\r\n"Bob "B" Ray","Rome"\r\n"Cy",""\r\n' >r.text
  local want='Ann,"Oslo, N"\n"Bob ""B"" Ray",Rome\nCy,\n'
  expect 0 'converted 3 records\n' convert r.text r.tagged0 --kind tagged0
  expect 0 'converted 3 records\n' convert r.text r.tagged1 --kind tagged1
  for from in tagged0 tagged1 text; do
    for to in tagged0 tagged1 text; do
      [ $from = $to ] && continue
      expect 0 'converted 3 records\n' convert r.$from to.$to --kind $to
      expect 0 "$want" dump --no-header to.$to
      expect 0 'converted 3 records\n' convert to.$to back.$from --kind $from
      expect 0 "$want" dump --no-header back.$from
      rm -f to.$to back.$from
    done
  done
  expect 0 'converted 4 records\n' convert contacts1.doc tab.txt --kind text --to-field-delimiter '\t' \
    --to-record-delimiter '\n' --to-quote ''
  printf 'Jos\x82 N\xa3\xa4ez\tSevilla\t555-0101\nZo\x89 M\x81ller\tK\x94ln\t555-0102\n' >want.tab
  printf 'Fran\x87ois Ga\x89l\tBesan\x87on\t555-0103\nAna, "Annie" Lee\tT\xa2rshavn\t555-0104\n' >>want.tab
  cmp -s want.tab tab.txt || fail "tab.txt: $(od -c tab.txt | head)"
  expect 0 "1,2,3\n$records" dump tab.txt --field-delimiter '\x09' --record-delimiter '\n' --quote ''
  rm want.tab tab.txt
  local before
  before=$(ls)
  expect_error 1 'see --lossy' convert contacts.txt x.doc --kind tagged0
  expect_error 1 'see the --to- options' convert contacts.doc x.txt --kind text --to-quote ''
  expect_error 1 'is there already' convert contacts.txt contacts.doc --kind tagged0
  [ "$(ls)" = "$before" ] || fail "a failed convert left files: $(ls)"
  expect 0 'converted 4 records\n' convert contacts.txt x.doc --kind tagged1 --lossy
  expect 0 'Zo? M?ller,K?ln,555-0102\n' find --no-header x.doc 2=k*
}

test_Recover() {
  expect 0 'nothing to recover: there is no contacts.bk beside contacts.txt\n' recover contacts.txt
  mkdir sub.d
  for table in contacts.doc contacts1.doc contacts.txt; do
    backup=${table%%.*}.bk
    cp $table sub.d/$backup
    expect 0 "restored sub.d/$table from $backup\n" recover sub.d/$table
    cmp -s $table sub.d/$table || fail "$table: not restored"
    for cut in 20 130 $(($(wc -c <$table) - 3)); do
      cp $table sub.d/$backup
      head -c $cut $table >sub.d/$table
      expect 0 "replaced the incomplete sub.d/$table by $backup (4 records)\n" recover sub.d/$table
      cmp -s $table sub.d/$table || fail "$table cut at $cut: not replaced"
    done
    head -c 130 $table >sub.d/$backup
    cp sub.d/$backup sub.d/$table
    expect_error 1 'left both alone' recover sub.d/$table
    cp $table sub.d/$table
  done
  # A backup beside the table stops the commit of an update, and the table
  # stays as it was. The backup is named beside the table, not from the
  # "." of its directory. The driver keeps a table whose commit failed, so
  # its memory stays taken at the end of that run.
  cp contacts.txt sub.d/contacts.bk
  ASAN_OPTIONS=detect_leaks=0 expect_error 1 'The file could not be renamed.' \
    update sub.d/contacts.txt --where '1=jos*' --set 2=x
  cmp -s contacts.txt sub.d/contacts.txt || fail "the table changed"
  run recover sub.d/contacts.txt
  grep -q 'reads whole (4 records); left it and contacts.bk alone' "$out" && [ -e sub.d/contacts.bk ] ||
    fail "recover of a whole table: $(cat "$out" "$err")"
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
  expect_error 2 'too long' dump sixteen_letters_.txt
  expect_error 2 'names no table file' dump sub/
  expect_error 2 'code page 437 lacks' dump --utf8 --field '€' contacts.txt
  expect_error 2 'nothing to look for' find contacts.txt
  expect_error 2 'expected NAME=' find contacts.txt Name
  expect_error 2 'an empty pattern' find contacts.txt Name=
  expect_error 2 'nothing to change' update contacts.txt --where 1=a
  expect_error 2 'nothing to look for' delete contacts.txt
  expect_error 2 "a tagged document can't store" insert contacts.doc Name=$'\x82'
  expect_error 2 'quote next to a delimiter' insert contacts.txt 1='a",b'
  "$tool" create empty.txt --kind text
  expect_error 2 'no fields yet' insert empty.txt Name=x
  expect_error 2 'missing --kind' create new.doc --field a
  expect_error 2 'unknown kind' create new.doc --kind tagged2 --field a
  expect_error 2 'at least one --field' create new.doc --kind tagged0
  expect_error 2 'give no --field' create new.txt --kind text --field a
  expect_error 2 "holds a '~'" create new.doc --kind tagged1 --field 'a~b'
  expect_error 2 'given twice' create new.doc --kind tagged0 --field a --field A
  expect_error 2 'missing SOURCE TARGET' convert contacts.txt
  [ ! -e new.doc ] && [ ! -e new.txt ] || fail "a usage error made a file"
  expect_error 1 'The table file could not be opened.' dump missing.txt
  expect_error 1 'The database directory does not exist.' tables missing
  expect_error 1 'There is no field of that name or number.' dump --field Fax contacts.doc
  run dump --help
  [ "$status" -eq 0 ] && grep -q '^Usage: mergedb dump TABLE' "$out" || fail "dump --help"
}

test_Progress() {
  for i in $(seq 1 2500); do printf '"r%d"\r\n' "$i"; done >long.txt
  run dump long.txt
  [ ! -s "$err" ] || fail "progress shown on a pipe: $(cat "$err")"
  script -qec "'$tool' dump long.txt >/dev/null" /dev/null >"$out"
  grep -q 'dump: 2000 records' "$out" || fail "no progress on a terminal: $(od -c "$out" | head -3)"
}

"test_$group"
[ "$failures" -eq 0 ]
