#!/usr/bin/perl
# Reads a delimited file through Perl's DBD::CSV driver, as the benchmark's
# peer. Arguments: the directory, the file's name in it and its number of
# fields. Every field of every record goes into a buffer of 254 bytes;
# prints the number of records and the bytes of all fields.
use strict;
use warnings;
use DBI;

my ($directory, $file, $fieldCount) = @ARGV;
my $bufferTextLimit = 254;

my $dbh = DBI->connect("dbi:CSV:", undef, undef, {
    f_dir      => $directory,
    csv_eol    => "\r\n",
    RaiseError => 1,
    csv_tables => {
        data => { f_file => $file, col_names => [map { "f$_" } 1 .. $fieldCount] },
    },
});
my $select = $dbh->prepare("SELECT * FROM data");
$select->execute;
my ($records, $text) = (0, 0);
while (my $row = $select->fetchrow_arrayref) {
    $records++;
    for my $field (@$row) {
        $text += length(substr($field // "", 0, $bufferTextLimit));
    }
}
$dbh->disconnect;
print "$records $text\n";
