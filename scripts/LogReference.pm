# docs/LOG.md as data: reading it, writing it, and finding the entry of a logged line.
#
#   ## `agent/main.cpp`: title                  a section; free text may stand under it
#
#   - `a text` (notes)                           an entry: one or more texts ...
#   - pattern `^a regular expression`            ... or patterns, for lines that are no text of the agent's own
#     **When** ... **Means** ... **Do** ...      ... and what is said of them
#
# A text stands as printf gets it: conversions (%m: the system's error), "\n" for a line end inside, "\\" for a backslash.
# The line end that closes it is left out. Notes, separated by "; ": "no line end", "stderr", "also in FILE, FILE", and
# "after `TEXT`" for a text without a letter of its own, which is known only by the line before it.
package LogReference;
use strict;
use warnings;
use Exporter qw(import);
use Text::Wrap qw(wrap);

our @EXPORT_OK = qw(read_reference write_reference explainer is_text shown plain line_pattern);

# A text as it stands in the document, and back.
sub shown {
    my ($text) = @_;
    my $open = $text !~ s/\n\z//;
    $text =~ s/\\/\\\\/g;
    $text =~ s/\n/\\n/g;
    $text =~ s/\r/\\r/g;
    $text =~ s/\t/\\t/g;
    return ($text, $open);
}

sub plain {
    my ($shown, $open) = @_;
    my %escaped = (n => "\n", r => "\r", t => "\t", '\\' => '\\');
    $shown =~ s/\\(.)/$escaped{$1} \/\/ die "LOG.md: unknown escape \\$1\n"/ge;
    return $open ? $shown : "$shown\n";
}

sub is_text { return !exists $_[0]{pattern} }

sub parsed_line {
    my ($line) = @_;
    return { pattern => $1 } if $line =~ /^- pattern `(.*)`$/;
    return unless $line =~ /^- `(.*)`(?: \((.*)\))?$/;
    my ($shown, @notes) = ($1, split /; /, $2 // '');
    my ($after) = map { /^after `(.*)`$/ ? $1 : () } @notes;
    return { text => plain($shown, scalar grep { $_ eq 'no line end' } @notes), after => $after };
}

# The document: { head => lines before the first section, sections => [{ heading, file, intro, entries => [{ lines =>
# [{ text, after } or { pattern }], when, means, do }] }] }.
sub read_reference {
    my ($path) = @_;
    my $document = { head => '', sections => [] };
    my ($section, $entry, $said);
    my $close = sub {
        return unless $entry;
        @$entry{qw(when means do)} = $said =~ /^\*\*When\*\* (.*?) \*\*Means\*\* (.*?) \*\*Do\*\* (.*)$/
            or die "$path: no When, Means, Do: $said (at $entry->{lines}[0]{shown})\n";
        push @{ $section->{entries} }, $entry;
        ($entry, $said) = ();
    };
    open my $in, '<', $path or die "$path: $!\n";
    while (my $line = <$in>) {
        chomp $line;
        if ($line =~ /^## (?:`([^`]+)`)?/) {
            $close->();
            $section = { heading => $line, file => $1, intro => '', entries => [] };
            push @{ $document->{sections} }, $section;
        } elsif (!$section) {
            $document->{head} .= "$line\n";
        } elsif ($line =~ /^- /) {
            $close->() if defined $said;
            my $parsed = parsed_line($line) or die "$path:$.: neither a text nor a pattern: $line\n";
            $parsed->{shown} = $line;
            push @{ $entry->{lines} }, $parsed;
        } elsif ($entry && $line =~ /^  (.*)/) {
            $said = defined $said ? "$said $1" : $1;
        } elsif ($line =~ /^$/ && defined $said) {
            $close->();
        } elsif (!@{ $section->{entries} } && !$entry) {
            $section->{intro} .= "$line\n";
        } elsif ($line !~ /^$/) {
            die "$path:$.: belongs to no entry: $line\n";
        }
    }
    $close->();
    return $document;
}

# The document as text. `notes` gives the notes of a text.
sub write_reference {
    my ($document, $notes) = @_;
    local $Text::Wrap::columns = 121;
    local $Text::Wrap::huge = 'overflow';
    local $Text::Wrap::unexpand = 0;
    my $out = $document->{head};
    for my $section (@{ $document->{sections} }) {
        (my $intro = $section->{intro}) =~ s/^\n+|\n+\z//g;
        $out .= "$section->{heading}\n\n" . ($intro eq '' ? '' : "$intro\n\n");
        for my $entry (@{ $section->{entries} }) {
            for my $line (@{ $entry->{lines} }) {
                if (!is_text($line)) { $out .= "- pattern `$line->{pattern}`\n"; next }
                my ($shown) = shown($line->{text});
                my @notes = $notes->($line);
                $out .= "- `$shown`" . (@notes ? ' (' . join('; ', @notes) . ')' : '') . "\n";
            }
            $out .= wrap('  ', '  ', "**When** $entry->{when} **Means** $entry->{means} **Do** $entry->{do}") . "\n\n";
        }
    }
    $out =~ s/\n+\z/\n/;
    return $out;
}

# What a conversion may have become.
my %converted = (d => '-?\d+', i => '-?\d+', u => '\d+', x => '[0-9a-f]+', c => '.', s => '.*?', m => '.+');

# One line of a text as a regular expression, and how many characters of it are fixed.
sub line_pattern {
    my ($line) = @_;
    my ($pattern, $fixed) = ('', 0);
    for my $piece (split /(%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*)?)?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%])/, $line) {
        if ($piece =~ /^%.*([a-zA-Z])$/s) {
            $pattern .= $converted{$1} // die "LOG.md: unknown conversion $piece\n";
        } else {
            $piece = '%' if $piece eq '%%';
            $pattern .= quotemeta $piece;
            $fixed += length $piece;
        }
    }
    return ($pattern, $fixed);
}

# A function that finds what a line is made of: pieces, usually one, as a text without a line end is followed by another
# on its line. A piece is a list of the texts or patterns that fit it best, usually one: { entry, line, part, parts },
# where part counts the lines of a text from 0. Empty where nothing fits. `before` is what was found for the line before.
sub explainer {
    my ($document) = @_;
    my (@whole, @open, @patterns, @after, %known);
    for my $entry (map { @{ $_->{entries} } } @{ $document->{sections} }) {
        for my $line (@{ $entry->{lines} }) {
            if (!is_text($line)) {
                push @patterns, { entry => $entry, line => $line, regex => qr/$line->{pattern}/, part => 0, parts => 1 };
                next;
            }
            my @parts = split /\n/, $line->{text}, -1;
            my $ended = $parts[-1] eq '';
            pop @parts if $ended;
            for my $part (0 .. $#parts) {
                next if $parts[$part] =~ /^\s*$/;
                (my $bare = $parts[$part]) =~ s{^\s+|\s+\z}{}g;  # what is pasted may lack them
                my ($pattern, $fixed) = line_pattern($bare);
                my $found = { entry => $entry, line => $line, part => $part, parts => scalar @parts, fixed => $fixed };
                if (defined $line->{after}) { push @after, $found; next }
                push @whole, { %$found, regex => qr/^\s*$pattern\s*\z/ };
                push @open, { %$found, regex => qr/^\s*$pattern/ } if $part == $#parts && !$ended;
            }
        }
    }
    @$_ = sort { $b->{fixed} <=> $a->{fixed} } @$_ for \@whole, \@open;

    my $text_or_pattern = sub {
        my ($line) = @_;
        my @best;
        for my $candidate (@whole) {
            last if @best && $candidate->{fixed} < $best[0]{fixed};
            push @best, $candidate if $line =~ $candidate->{regex};
        }
        return \@best if @best;
        for my $candidate (@patterns) { return [$candidate] if $line =~ $candidate->{regex} }
        return;
    };
    my $pieces;
    $pieces = sub {
        my ($line) = @_;
        my $whole = $text_or_pattern->($line);
        return $whole if $whole && is_text($whole->[0]{line});
        for my $candidate (@open) {
            next unless $line =~ $candidate->{regex} && $+[0] > 0;
            my @rest = $pieces->(substr $line, $+[0]);
            return ([$candidate], @rest) if @rest;
        }
        return $whole // ();
    };
    return sub {
        my ($line, $before) = @_;
        my $found = $known{$line} //= [$pieces->($line)];
        return @$found if @$found;
        my ($last) = $before ? shown($before->[-1][0]{line}{text} // '') : '';
        for my $candidate (@after) {
            # What it prints ends without a line end, mostly, and then a text follows that begins like one.
            for my $at (1 .. length($line) - 1) {
                my $rest = $text_or_pattern->(substr $line, $at);
                next unless $rest && is_text($rest->[0]{line}) && $rest->[0]{fixed} > 10;
                return ([$candidate], $rest) if substr($line, 0, $at) =~ /^\S+$/ && substr($line, $at) =~ /^\S/;
            }
            return [$candidate] if $last eq $candidate->{line}{after};
        }
        return;
    };
}

1;
