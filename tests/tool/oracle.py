"""Checks vell-lpm's answers against independent tools on the same input.

  oracle.py lookup VELL_LPM TABLE N   longest-prefix answers for N random
                                      addresses vs. netaddr-parsed prefixes
  oracle.py mrt VELL_LPM DUMP         --list vs. `bgpdump -m`: the same
                                      prefixes, each with the origin AS of
                                      its first RIB entry that names one
  oracle.py cidr VELL_LPM TABLE N     which of N random addresses a CIDR list
                                      covers vs. `grepcidr`
  oracle.py ranges VELL_LPM TABLE N   the text each of N random addresses
                                      gets from a START,END,TEXT range list
                                      with decimal ends vs. a search of the
                                      ranges themselves
  oracle.py updates VELL_LPM FILE     the changes an update file holds, per
                                      peer and second, vs. `bgpdump -m`'s A
                                      and W lines; --list at several moments
                                      vs. those lines applied per peer here
Exits 1 with the first differences on stderr.
"""
import bisect
import gzip
import json
import os
import random
import re
import subprocess
import sys
import tempfile

import netaddr


def read_table(path):
    """{IPNetwork: data word} of a PREFIX<TAB>ASN or CIDR list (gzip or not)."""
    opener = gzip.open if open(path, 'rb').read(2) == b'\x1f\x8b' else open
    table = {}
    with opener(path, 'rt') as f:
        for line in f:
            words = line.split()
            if not words or line[0] in ';#':
                continue
            net = netaddr.IPNetwork(words[0])
            table.setdefault(net, int(words[1]) if len(words) > 1 else 0)
    return table


def sample(table, n, rng):
    """n addresses: half inside a random stored prefix, half uniform."""
    nets = sorted(table, key=lambda x: (x.version, x.value, x.prefixlen))
    out = []
    for i in range(n):
        if i % 2:
            net = rng.choice(nets)
            host = rng.getrandbits(net.size.bit_length() - 1 or 1) % net.size
            out.append(netaddr.IPAddress(net.value + host, net.version))
        else:
            version = rng.choice([net.version for net in nets[:1] + nets[-1:]])
            out.append(netaddr.IPAddress(
                rng.getrandbits(32 if version == 4 else 128), version))
    return out


def longest(by_len, addr):
    bits = 32 if addr.version == 4 else 128
    for length in range(bits, -1, -1):
        net = netaddr.IPNetwork((addr.value >> (bits - length) << (bits - length),
                                 length), version=addr.version)
        if net in by_len.get((addr.version, length), ()):
            return net
    return None


def run(args, stdin=''):
    return subprocess.run(args, input=stdin, capture_output=True, text=True,
                          check=True).stdout


def differences(name, want, got):
    missing, extra = want - got, got - want
    for what, items in (('expected but not given', missing),
                        ('given but not expected', extra)):
        for item in sorted(items, key=str)[:5]:
            print('%s: %s: %s' % (name, what, item), file=sys.stderr)
    return len(missing) + len(extra)


def check_lookup(tool, path, n):
    table = read_table(path)
    by_len = {}
    for net in table:
        by_len.setdefault((net.version, net.prefixlen), set()).add(net)
    addrs = sample(table, n, random.Random(1))
    # Every third address as a decimal integer, as batch jobs write them.
    lines = [str(a.value) if i % 3 == 0 else str(a) for i, a in enumerate(addrs)]
    answers = [json.loads(l) for l in
               run([tool, '-t', path, '--stdin', '--json'],
                   '\n'.join(lines) + '\n').splitlines()]
    want, got = set(), set()
    for addr, ans in zip(addrs, answers):
        net = longest(by_len, addr)
        want.add((str(addr), str(net) if net else None,
                  table[net] if net else None))
        prefix = ans['prefix'] and str(netaddr.IPNetwork(ans['prefix']))
        got.add((str(netaddr.IPAddress(ans['canonical'])), prefix, ans['data']))
    print('lookup: %d of %d addresses matched' %
          (sum(1 for a in answers if a['prefix']), len(answers)))
    if len(answers) != len(addrs):
        print('lookup: %d answers for %d addresses' % (len(answers), len(addrs)),
              file=sys.stderr)
        return 1
    return differences('lookup', want, got)


def check_mrt(tool, path):
    want = {}
    for line in run(['bgpdump', '-m', path]).splitlines():
        f = line.split('|')
        net = netaddr.IPNetwork(f[5])
        # The first RIB entry whose path names an origin does: not an empty
        # path, nor confederation segments, printed in () and [].
        ases = re.sub(r'\([^)]*\)|\[[^]]*\]', ' ', f[6]).split()
        if net in want or not ases:
            continue
        want[net] = min(int(x) for x in ases[-1].strip('{}').split(','))
    got = {}
    for line in run([tool, '-t', path, '--list', '--json']).splitlines():
        item = json.loads(line)
        got[netaddr.IPNetwork(item['prefix'])] = item['data']
    print('mrt: %d prefixes' % len(want))
    return differences('mrt', set(want.items()), set(got.items()))


def check_ranges(tool, path, n):
    # Decimal ends below 2^32 are IPv4, as the tool reads them.
    ranges = {4: [], 6: []}
    with gzip.open(path, 'rt') as f:
        for line in f:
            first, last, text = line.rstrip('\n').split(',')[:3]
            first, last = int(first), int(last)
            ranges[4 if last < 2**32 else 6].append((first, last, text))
    for table in ranges.values():
        table.sort()
    rng = random.Random(3)
    addrs = []
    for i in range(n):
        version = 4 if i % 4 < 2 else 6
        if i % 2:
            first, last, _ = rng.choice(ranges[version])
            value = rng.randint(first, last)
        else:
            value = rng.getrandbits(32 if version == 4 else 128)
        addrs.append(netaddr.IPAddress(value, version))
    # The narrowest range holding the address answers: a range nested in
    # another splits into prefixes within the other's (the list has no
    # ranges that overlap without nesting).
    want = set()
    for addr in addrs:
        table = ranges[addr.version]
        at = bisect.bisect_right(table, (addr.value, 2**128, ''))
        holding = [r for r in table[:at] if r[1] >= addr.value]
        best = min(holding, key=lambda r: r[1] - r[0], default=None)
        want.add((str(addr), best[2] if best else None))
    answers = [json.loads(line) for line in
               run([tool, '-t', path, '--stdin', '--json'],
                   '\n'.join(str(a) for a in addrs) + '\n').splitlines()]
    got = {(a['address'], a['label']) for a in answers}
    print('ranges: %d of %d addresses in a range' %
          (sum(1 for _, text in want if text), len(addrs)))
    return differences('ranges', want, got)


def check_cidr(tool, path, n):
    table = read_table(path)
    addrs = [str(a) for a in sample(table, n, random.Random(2))]
    with tempfile.TemporaryDirectory() as d:
        nets, queries = os.path.join(d, 'nets'), os.path.join(d, 'addrs')
        with open(nets, 'w') as f:
            f.write('\n'.join(str(net) for net in table) + '\n')
        # The tool reads the list gzipped, as a blocklist has it (a
        # byte-order mark, host routes as bare addresses, untidy blanks, ';'
        # comments), and as a JSON array of CIDR strings.
        with gzip.open(nets + '.gz', 'wt', encoding='utf-8-sig') as f:
            for i, net in enumerate(table):
                bare = net.prefixlen == (32 if net.version == 4 else 128)
                f.write(' \t%s  ; SBL%d\r\n' % (net.ip if bare else net, i))
        with open(nets + '.json', 'w') as f:
            json.dump([str(net) for net in table], f, indent=1)
        with open(queries, 'w') as f:
            f.write('\n'.join(addrs) + '\n')
        covered = subprocess.run(['grepcidr', '-f', nets, queries],
                                 capture_output=True, text=True).stdout
        got = [{l.split()[0] for l in run([tool, '-t', nets + ext, '--stdin'],
                                          '\n'.join(addrs) + '\n').splitlines()
                if l.split()[1] != '-'} for ext in ('.gz', '.json')]
    want = set(covered.split())
    print('cidr: %d of %d addresses covered' % (len(want), len(addrs)))
    return (differences('cidr', want, got[0]) +
            differences('cidr json', want, got[1]))


def origin_of(path):
    last = path.split()[-1] if path.split() else '0'
    return min(int(x) for x in last.strip('{}').split(','))


def answers_at(lines, at):
    """{IPNetwork: origin} after the bgpdump lines up to `at`: each peer's
    routes, the peer first seen in an A or W line answering."""
    rank, routes = {}, {}  # routes: {net: {peer: origin}}
    for f in lines:
        if int(f[1]) > at:
            break
        peer = (f[4], f[3])
        if f[2] == 'STATE':
            if f[5] == '6' and f[6] != '6':
                # A session recorded without its address is its AS's.
                ended = [p for p in rank
                         if p == peer or (f[3] in ('0.0.0.0', '::') and
                                          p[0] == f[4])]
                for net in routes:
                    for p in ended:
                        routes[net].pop(p, None)
            continue
        rank.setdefault(peer, len(rank))
        net = netaddr.IPNetwork(f[5])
        if f[2] == 'A':
            routes.setdefault(net, {})[peer] = origin_of(f[6])
        else:
            routes.get(net, {}).pop(peer, None)
    return {net: by_peer[min(by_peer, key=rank.get)]
            for net, by_peer in routes.items() if by_peer}


def check_updates(tool, path):
    lines = [l.split('|') for l in run(['bgpdump', '-m', path]).splitlines()]
    want = {}
    for f in lines:
        if f[2] in 'AW':
            change = (f[2], str(netaddr.IPNetwork(f[5])))
            if f[2] == 'A':
                change += (origin_of(f[6]),)
            want.setdefault((f[1], f[4], f[3]), []).append(change)
    got = {}
    for line in run([tool, '--updates', path, '--print']).splitlines():
        f = line.split('|')
        if f[1] == 'DOWN':
            continue
        peer_as, peer_ip = f[2][2:].split()
        change = (f[1], str(netaddr.IPNetwork(f[3])))
        if f[1] == 'A':
            change += (int(f[4]),)
        got.setdefault((f[0], peer_as, peer_ip), []).append(change)
    bad = differences('updates', set(want), set(got))
    for key in sorted(set(want) & set(got)):
        if want[key] != got[key]:
            print('updates: %s: the changes differ' % (key,), file=sys.stderr)
            bad += 1
    times = sorted({int(f[1]) for f in lines})
    print('updates: %d changes in %d peer-seconds' %
          (sum(len(v) for v in want.values()), len(want)))
    # Moments across the file, and the end.
    for at in times[len(times) // 5::len(times) // 5] + [times[-1]]:
        expect = answers_at(lines, at)
        answers = {}
        for line in run([tool, '--updates', path, '--at', str(at), '--list',
                         '--json']).splitlines():
            item = json.loads(line)
            answers[netaddr.IPNetwork(item['prefix'])] = item['data']
        print('updates: %d prefixes at %d' % (len(expect), at))
        bad += differences('updates at %d' % at, set(expect.items()),
                           set(answers.items()))
    return bad


def main():
    mode, tool, path = sys.argv[1:4]
    if mode == 'lookup':
        bad = check_lookup(tool, path, int(sys.argv[4]))
    elif mode == 'mrt':
        bad = check_mrt(tool, path)
    elif mode == 'updates':
        bad = check_updates(tool, path)
    elif mode == 'ranges':
        bad = check_ranges(tool, path, int(sys.argv[4]))
    else:
        bad = check_cidr(tool, path, int(sys.argv[4]))
    sys.exit(1 if bad else 0)


if __name__ == '__main__':
    main()
