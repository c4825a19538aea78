#!/bin/sh
# Make a small MRT update file (BGP4MP) written by another BGP implementation.
#
# BIRD 2 (Debian bird2) listens on 127.0.0.1 and records every message of its
# sessions with `mrtdump`; two ExaBGP speakers (Debian exabgp) on 127.0.0.2
# and 127.0.0.3 announce IPv4 and IPv6 prefixes taken, with their AS paths,
# from the RIB dumps in data/pyasn/, then churn (new paths, withdrawals,
# re-announcements) and one session is reset (its speaker is stopped and
# started again). Everything runs in a temporary directory on unprivileged
# ports and is stopped on exit; no kernel routes are touched (BIRD has no
# kernel protocol) and no sysctl is changed. Beyond installing the packages
# when they are missing (Debian's exabgp package enables its own service
# unit, and on a host that allows it bird2's package starts its daemon on
# its default configuration), nothing machine-wide is changed.
#
# usage: scripts/make-updates.sh [OUTPUT]   (default data/updates/bird-updates.mrt.bz2)
#   N4=8000 N6=5000   prefixes announced by the first speaker per family
#   PORT=11179        BIRD's listening port
set -eu

here=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$here/data/updates/bird-updates.mrt.bz2}
N4=${N4:-8000}
N6=${N6:-5000}
PORT=${PORT:-11179}
rib4=$here/data/pyasn/rib.20140523.0600_firstMB.bz2
rib6=$here/data/pyasn/rib6.20151101.0600_firstMB.bz2

say() { printf 'make-updates: %s\n' "$*" >&2; }

need=""
command -v bird >/dev/null 2>&1 || need="$need bird2"
command -v exabgp >/dev/null 2>&1 || need="$need exabgp"
command -v bgpdump >/dev/null 2>&1 || need="$need bgpdump"
if [ -n "$need" ]; then
    say "installing$need (apt-get update first)"
    apt-get update -qq
    # shellcheck disable=SC2086 # a list of package names
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $need >/dev/null
fi

tmp=$(mktemp -d /tmp/make-updates.XXXXXX)
pids=""
cleanup() {
    for p in $pids; do kill "$p" 2>/dev/null || true; done
    sleep 1
    for p in $pids; do kill -9 "$p" 2>/dev/null || true; done
    rm -rf "$tmp"
}
trap cleanup EXIT
trap 'exit 130' INT TERM HUP
say "working in $tmp"

# Routes: the IPv4 and IPv6 dumps' prefixes with the AS path of three of
# their peers each (the first for speaker A, the second for speaker B, the
# third for A's new paths during the churn). AS_SET paths are left out.
bgpdump -m "$rib4" 2>/dev/null > "$tmp/rib4.txt" || true
bgpdump -m "$rib6" 2>/dev/null > "$tmp/rib6.txt" || true

python3 - "$tmp" "$N4" "$N6" <<'EOF'
import sys, collections
tmp, n4, n6 = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
A, B = 4200000002, 65003            # the speakers' ASes (A's needs 4 bytes)

def load(path):
    by_peer = collections.defaultdict(dict)
    count = collections.Counter()
    for line in open(path):
        f = line.split('|')
        if len(f) < 7 or f[0] != 'TABLE_DUMP2' or '{' in f[6]:
            continue
        if f[5] in ('0.0.0.0/0', '::/0'):
            continue
        by_peer[f[3]].setdefault(f[5], (f[6].split(), f[7], f[10], f[11].split()))
        count[f[3]] += 1
    peers = [p for p, _ in count.most_common(3)]
    return [by_peer[p] for p in peers]

def common(tables, n):
    # prefixes every chosen peer has, in dump order
    first = tables[0]
    return [p for p in first if all(p in t for t in tables[1:])][:n]

t4, t6 = load(f'{tmp}/rib4.txt'), load(f'{tmp}/rib6.txt')
p4, p6 = common(t4, n4), common(t6, n6)

def ann(asn, prefix, route, nh4, nh6):
    path, origin, med, comms = route
    nh = nh6 if ':' in prefix else nh4
    cmd = f'announce route {prefix} next-hop {nh} origin {origin.lower()} as-path [ {asn} {" ".join(path)} ]'
    if med not in ('', '0'):
        cmd += f' med {med}'
    comms = [c for c in comms if c.count(':') == 1 or c in ('no-export', 'no-advertise')]
    if comms:
        cmd += f' community [ {" ".join(comms)} ]'
    return cmd

def wd(prefix, nh4, nh6):
    nh = nh6 if ':' in prefix else nh4
    return f'withdraw route {prefix} next-hop {nh}'

def paced(lines, batch, pause):
    outl = []
    for i in range(0, len(lines), batch):
        outl += lines[i:i + batch] + [f'#sleep {pause}']
    return outl

nhA = ('127.0.0.2', '2001:db8::2')
nhB = ('127.0.0.3', '2001:db8::3')

# Speaker A: everything, then the churn.
a_load = [ann(A, p, t4[0][p], *nhA) for p in p4] + [ann(A, p, t6[0][p], *nhA) for p in p6]
k4, k6 = len(p4) // 6, len(p6) // 6
new_paths = [ann(A, p, t4[2][p], *nhA) for p in p4[:k4]] + \
            [ann(A, p, t6[2][p], *nhA) for p in p6[:k6]]
gone = p4[k4:2 * k4] + p6[k6:2 * k6]
withdrawn = [wd(p, *nhA) for p in gone]
back = [ann(A, p, (t4[2] if ':' not in p else t6[2])[p], *nhA) for p in gone[::2]]
a = paced(a_load, 250, 0.3) + ['#sleep 3'] + paced(new_paths, 50, 0.4) + \
    ['#sleep 1'] + paced(withdrawn, 50, 0.4) + ['#sleep 1'] + paced(back, 50, 0.4)

# Speaker B: two thirds of the prefixes with its own paths; after its
# restart, only half of them, some with A's churn paths.
h4, h6 = p4[:2 * len(p4) // 3], p6[:2 * len(p6) // 3]
b1 = [ann(B, p, t4[1][p], *nhB) for p in h4] + [ann(B, p, t6[1][p], *nhB) for p in h6]
r4, r6 = h4[::2], h6[::2]
b2 = [ann(B, p, (t4[2] if i % 5 == 0 else t4[1])[p], *nhB) for i, p in enumerate(r4)] + \
     [ann(B, p, t6[1][p], *nhB) for p in r6]

for name, lines in (('A', a), ('B1', paced(b1, 250, 0.3)), ('B2', paced(b2, 250, 0.3))):
    with open(f'{tmp}/cmds.{name}', 'w') as f:
        f.write('\n'.join(lines) + '\n')
print(f'speaker A: {len(p4)} IPv4 and {len(p6)} IPv6 prefixes, then {len(new_paths)} new paths, '
      f'{len(withdrawn)} withdrawals, {len(back)} re-announcements; '
      f'speaker B: {len(b1)} prefixes, after its restart {len(b2)}', file=sys.stderr)
EOF

# The API process of a speaker: waits for its go file, then plays its
# commands with their pauses and stays until it is stopped.
cat > "$tmp/play.py" <<'EOF'
import os, sys, time
cmds, go = sys.argv[1], sys.argv[2]
while not os.path.exists(go):
    time.sleep(0.1)
for line in open(cmds):
    line = line.strip()
    if line.startswith('#sleep'):
        sys.stdout.flush()
        time.sleep(float(line.split()[1]))
    elif line:
        sys.stdout.write(line + '\n')
sys.stdout.flush()
open(go.replace('go.', 'done.'), 'w').close()
while True:
    time.sleep(60)
EOF

cat > "$tmp/bird.conf" <<EOF
router id 192.0.2.1;
log "$tmp/bird.log" all;
mrtdump "$tmp/updates.mrt";
mrtdump protocols { states, messages };

template bgp speaker {
    local 127.0.0.1 port $PORT as 64512;
    strict bind on;
    passive on;
    multihop;
    mrtdump { states, messages };
    ipv4 { import all; export none; };
    ipv6 { import all; export none; };
}
protocol bgp spk_a from speaker { neighbor 127.0.0.2 as 4200000002; }
protocol bgp spk_b from speaker { neighbor 127.0.0.3 as 65003; }
EOF

speaker_conf() {  # NAME ADDRESS AS COMMANDS
    cat > "$tmp/exabgp.$1.conf" <<EOF
process play {
    run /usr/bin/python3 $tmp/play.py $tmp/cmds.$4 $tmp/go.$1;
    encoder text;
}
neighbor 127.0.0.1 {
    router-id $2;
    local-address $2;
    local-as $3;
    peer-as 64512;
    connect $PORT;
    group-updates true;
    family { ipv4 unicast; ipv6 unicast; }
    api { processes [ play ]; }
}
EOF
}

start_speaker() {  # NAME ADDRESS AS COMMANDS
    speaker_conf "$@"
    env exabgp_daemon_drop=false exabgp_daemon_user=root exabgp_api_ack=false \
        exabgp_api_cli=false exabgp_tcp_bind='' exabgp_log_destination="$tmp/exabgp.$1.log" \
        exabgp "$tmp/exabgp.$1.conf" >"$tmp/exabgp.$1.out" 2>&1 &
    last=$!
    pids="$pids $last"
    say "speaker $1 ($2, AS $3) started, pid $last"
}

established() {  # PROTOCOL
    birdc -s "$tmp/bird.ctl" show protocols "$1" 2>/dev/null | grep -q Established
}

wait_up() {  # PROTOCOL...
    for i in $(seq 1 300); do
        ok=1
        for p in "$@"; do established "$p" || ok=0; done
        [ $ok = 1 ] && return 0
        sleep 0.2
    done
    say "sessions $* did not come up; logs:"; cat "$tmp"/*.log "$tmp"/*.out >&2
    exit 1
}

wait_done() {  # NAME...: until the speakers have played their commands
    for n in "$@"; do
        i=0
        while [ ! -e "$tmp/done.$n" ]; do
            i=$((i + 1))
            if [ $i -gt 900 ]; then
                say "speaker $n did not finish; logs:"; cat "$tmp"/*.log "$tmp"/*.out >&2
                exit 1
            fi
            sleep 0.2
        done
    done
    sleep 2
}

bird -c "$tmp/bird.conf" -s "$tmp/bird.ctl" -P "$tmp/bird.pid" -f >"$tmp/bird.out" 2>&1 &
pids="$pids $!"
say "bird started on 127.0.0.1 port $PORT, pid $!, recording to $tmp/updates.mrt"
sleep 1

start_speaker A 127.0.0.2 4200000002 A
start_speaker B 127.0.0.3 65003 B1; pid_b=$last
wait_up spk_a spk_b
say "both sessions established; announcing"
touch "$tmp/go.A" "$tmp/go.B"
# A goes on with its churn while B's session is reset.
wait_done B
say "resetting B's session (stopping its speaker)"
kill "$pid_b"; wait "$pid_b" 2>/dev/null || true
pids=$(echo "$pids" | tr ' ' '\n' | grep -vx "$pid_b" | tr '\n' ' ')
rm -f "$tmp/go.B" "$tmp/done.B"
sleep 3
start_speaker B 127.0.0.3 65003 B2; pid_b=$last
wait_up spk_b
say "B's session is up again; re-announcing a smaller table"
touch "$tmp/go.B"
wait_done A B
birdc -s "$tmp/bird.ctl" show route count >&2 || true
say "stopping speakers and bird"
birdc -s "$tmp/bird.ctl" down >/dev/null 2>&1 || true
sleep 1

mkdir -p "$(dirname "$out")"
case $out in
*.gz) gzip -9 -n -c "$tmp/updates.mrt" > "$out" ;;
*.bz2) bzip2 -9 -c "$tmp/updates.mrt" > "$out" ;;
*) cp "$tmp/updates.mrt" "$out" ;;
esac
say "wrote $out ($(wc -c < "$out") bytes, $(wc -c < "$tmp/updates.mrt") unpacked)"
bgpdump -m "$out" 2>/dev/null | awk -F'|' '
    { n[$3]++; if ($3 != "STATE") peers[$4]++; if (!t0 || $2 < t0) t0 = $2; if ($2 > t1) t1 = $2 }
    END { printf "make-updates: bgpdump -m: %d A, %d W, %d STATE lines, %d peers, %d s\n",
          n["A"], n["W"], n["STATE"], length(peers), t1 - t0 }' >&2
