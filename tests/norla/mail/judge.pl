# Reads messages from standard input, each behind a line with its size in bytes, with Email::MIME, and prints what it found in
# each as a line of JSON: texts as the hexadecimal digits of their UTF-8 form, bodies decoded by their transfer encoding.
use strict;
use warnings;
use Email::MIME;
use Email::MIME::ContentType;
use JSON::PP;

sub hexadecimal {
    my ($text) = @_;
    utf8::encode($text);
    return unpack 'H*', $text;
}

sub content {
    my ($entity, $type) = @_;
    return (parts => [map { report($_) } $entity->subparts]) if $type->{type} eq 'multipart';
    return (body => unpack 'H*', $entity->body);
}

sub report {
    my ($entity) = @_;
    my $type = parse_content_type($entity->content_type);
    my @pairs = $entity->header_str_pairs;
    my @headers;
    while (my ($name, $value) = splice @pairs, 0, 2) {
        push @headers, [$name, hexadecimal($value)] unless lc $name eq 'from';
    }
    my %found = (headers => \@headers, content($entity, $type));
    my ($from) = map { $_->addresses } $entity->header_as_obj('From');
    $found{from} = [hexadecimal($from->phrase), hexadecimal($from->address)] if $from;
    $found{name} = hexadecimal($type->{attributes}{name}) if defined $type->{attributes}{name};
    return \%found;
}

binmode STDIN;
my $json = JSON::PP->new->canonical;
while (defined(my $size = <STDIN>)) {
    read(STDIN, my $message, $size) == $size or die "a message is not there as a whole\n";
    print $json->encode(report(Email::MIME->new($message))), "\n";
}
