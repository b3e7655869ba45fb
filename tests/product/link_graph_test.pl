#!/usr/bin/perl
# The floors of the house as the linker sees them: an object that uses a name stands above the object that defines it.
# Fails with the names that tie a circle, and with every name by which an object of agent/ reaches up into ak_model/,
# frame/ or the recordings; only main may.
#
#   link_graph_test.pl NM OBJECT...
use strict;
use warnings;

my ($nm, @objects) = @ARGV;
@objects or die "usage: link_graph_test.pl NM OBJECT...\n";

sub name_of { my $name = shift; $name =~ s{.*\.dir/(?:\./)?}{}; $name =~ s{\.cpp\.o(?:bj)?$}{}; return $name; }

my (%home, %wanted);
for my $object (@objects) {
    open my $names, '-|', $nm, '-P', '-C', $object or die "$nm: $!\n";
    while (<$names>) {
        my ($symbol, $kind) = /^(.*?) ([A-Za-z?])(?: [0-9a-f]+)*\s*$/ or next;
        if ($kind =~ /[Uw]/) { $wanted{$object}{$symbol} = 1 }
        elsif ($kind =~ /[TDBRSG]/) { $home{$symbol} = $object }  # weak ones (inline functions) stand in each user
    }
    close $names or die "$nm failed on $object\n";
}

my %uses;  # object -> object -> names
for my $user (@objects) {
    for my $symbol (sort keys %{$wanted{$user} // {}}) {
        my $owner = $home{$symbol} // next;
        push @{$uses{$user}{$owner}}, $symbol if $owner ne $user;
    }
}
%uses or die "no object uses another's name: nothing was looked at\n";

# Tarjan's strongly connected components.
my ($counter, @stack, %index, %low, %on_stack, @circles) = (0);
sub visit {
    my $object = shift;
    $index{$object} = $low{$object} = $counter++;
    push @stack, $object;
    $on_stack{$object} = 1;
    for my $next (sort keys %{$uses{$object} // {}}) {
        if (!exists $index{$next}) { visit($next); $low{$object} = $low{$next} if $low{$next} < $low{$object} }
        elsif ($on_stack{$next}) { $low{$object} = $index{$next} if $index{$next} < $low{$object} }
    }
    return if $low{$object} != $index{$object};
    my @members;
    do { push @members, pop @stack; $on_stack{$members[-1]} = 0 } until $members[-1] eq $object;
    push @circles, \@members if @members > 1;
}
visit($_) for grep { !exists $index{$_} } @objects;

my $failed = 0;
for my $circle (@circles) {
    $failed = 1;
    my %member = map { $_ => 1 } @$circle;
    print 'a circle of ', join(', ', sort map { name_of($_) } @$circle), ":\n";
    for my $user (sort @$circle) {
        print '  ', name_of($user), ' -> ', name_of($_), ': ', join(', ', @{$uses{$user}{$_}}), "\n"
            for grep { $member{$_} } sort keys %{$uses{$user}};
    }
}
for my $user (sort grep { name_of($_) =~ m{^agent/} && name_of($_) ne 'agent/main' } @objects) {
    for my $owner (sort grep { name_of($_) =~ m{^(?:ak_model|frame)/|^video_recording$} } keys %{$uses{$user} // {}}) {
        $failed = 1;
        print name_of($user), ' reaches up to ', name_of($owner), ': ', join(', ', @{$uses{$user}{$owner}}), "\n";
    }
}
print scalar(@objects), " objects, no circle\n" if !$failed;
exit $failed;
