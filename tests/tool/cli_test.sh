#!/usr/bin/env bash
# vell-lpm end to end, as a user and a script meet it: answers alone on
# stdout, bad input refused in the tool's words before any answer, write
# errors reported. Usage: cli_test.sh VELL_LPM SOURCE_DIR
set -uo pipefail
tool=$1
src=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
routes=$src/tests/tool/routes.txt
failures=0

# expect NAME STATUS STDOUT STDERR -- ARGS...: runs the tool (stdin from
# $input when set) and compares status, stdout and stderr exactly; stderr
# without its status lines (tables read, tries built, updates replayed).
expect() {
  local name=$1 status=$2 out=$3 err=$4
  shift 5
  local got_status=0
  "$tool" "$@" <"${input:-/dev/null}" >"$tmp/out" 2>"$tmp/all" || got_status=$?
  grep -vE '^vell-lpm: ([^ ]+: [0-9]+ prefixes \(|IPv[46]: |tables: |updates: ([0-9]+ records|read and))' \
    "$tmp/all" >"$tmp/err"
  if [ "$got_status" != "$status" ] || [ "$(cat "$tmp/out")" != "$out" ] ||
    [ "$(cat "$tmp/err")" != "$err" ]; then
    echo "FAIL $name: status $got_status (want $status)"
    echo "--- stdout:"; cat "$tmp/out"; echo "--- want:"; echo "$out"
    echo "--- stderr:"; cat "$tmp/err"; echo "--- want:"; echo "$err"
    failures=$((failures + 1))
  fi
}

# Answers only on stdout, echoing each address as written: the longest
# prefix of each family (a range line's too); a miss prints as a miss;
# decimal queries; an IPv4-mapped address no IPv6 prefix covers is answered
# from the IPv4 table.
expect answers-only 0 "10.1.2.3 3 10.1.0.0/16
11.0.0.1 1 0.0.0.0/0
192.0.2.9 4 192.0.2.0/24
2002::1 - -
167772161 2 10.0.0.0/8
2001:DB8::1 5 2001:db8::/32
2001:db8:1::5 6 2001:db8:1::/48
::FFFF:10.1.2.3 3 10.1.0.0/16" "" \
  -- -t "$routes" 10.1.2.3 11.0.0.1 192.0.2.9 2002::1 167772161 2001:DB8::1 \
  2001:db8:1::5 ::FFFF:10.1.2.3
"$tool" -t "$routes" 10.1.2.3 2>"$tmp/err" >/dev/null
grep -q "IPv4: 4 prefixes" "$tmp/err" ||
  { echo "FAIL status line not on stderr"; failures=$((failures + 1)); }

# JSON answers and report parse as JSON.
"$tool" -t "$routes" --json --stats 10.1.2.3 2002::1 ::ffff:0a01:0203 \
  2>/dev/null >"$tmp/json"
/usr/bin/python3 -c '
import json, sys
lines = open(sys.argv[1]).read().splitlines()
doc = json.loads(lines[0])
assert doc["IPv4"]["prefixes"] == 4 and doc["IPv6"]["prefixes"] == 2, doc
assert json.loads(lines[1]) == {"address": "10.1.2.3", "canonical": "10.1.2.3",
                                "data": 3, "prefix": "10.1.0.0/16"}, lines[1]
assert json.loads(lines[2]) == {"address": "2002::1", "canonical": "2002::1",
                                "data": None, "prefix": None}, lines[2]
assert json.loads(lines[3]) == {"address": "::ffff:0a01:0203",
                                "canonical": "::ffff:10.1.2.3", "data": 3,
                                "prefix": "10.1.0.0/16",
                                "ipv4_mapped": True}, lines[3]
' "$tmp/json" || { echo "FAIL json"; failures=$((failures + 1)); }

# The first bad line stops the tool before any answer, named by file and
# line, and is all it prints. A NUL byte is a bad line, not a joint with the
# next one.
expect bad-line 1 "" "vell-lpm: $src/tests/tool/bad_routes.txt:4: bad prefix length '33' (0 to 32 for IPv4)" \
  -- -t "$src/tests/tool/bad_routes.txt" 10.0.0.1
cmp -s "$tmp/all" "$tmp/err" ||
  { echo "FAIL bad-line: status lines beside the error"; failures=$((failures + 1)); }
printf '10.0.0.0/8 1 #\0x\n10.1.0.0/16 2\n' >"$tmp/nul"
expect nul-byte 1 "" "vell-lpm: $tmp/nul:1: NUL byte in line '10.0.0.0/8 1 #\\x00x'" \
  -- -t "$tmp/nul" 10.1.2.3

# Offending text is quoted bounded and escaped.
printf '10.0.0.0/8 1\n\033[2J%s/8\n' "$(printf 'A%.0s' {1..200})" >"$tmp/long"
expect long-token 1 "" "vell-lpm: $tmp/long:2: bad address '\\x1b[2J$(printf 'A%.0s' {1..36})'..." \
  -- -t "$tmp/long" 10.1.2.3
printf '10.1.2.3\n10.0.0.0/8 1\n\n2002::1\n' >"$tmp/in"
input=$tmp/in expect bad-stdin-line 1 "10.1.2.3 3 10.1.0.0/16
2002::1 - -" "vell-lpm: <stdin>:2: bad address '10.0.0.0/8 1'" \
  -- -t "$routes" --stdin
expect stdin-twice 1 "" "vell-lpm: stdin can be read only once ('-t -', '--updates -', --stdin)" \
  -- -t - --stdin
expect bad-arg 1 "" "vell-lpm: bad address '\\x1b[2J'" -- -t "$routes" $'\e[2J'

# Directories, missing and unreadable files each say so.
expect directory 1 "" "vell-lpm: $tmp: is a directory, not a table file" -- -t "$tmp" 1.2.3.4
expect missing 1 "" "vell-lpm: $tmp/none: no such file" -- -t "$tmp/none" 1.2.3.4

# A write error on stdout is an error; a closed pipe is not.
if [ -w /dev/full ]; then
  "$tool" -t "$routes" 10.1.2.3 >/dev/full 2>"$tmp/err" && {
    echo "FAIL write error ignored"; failures=$((failures + 1)); }
  grep -q "^vell-lpm: cannot write the answers: No space left on device$" "$tmp/err" ||
    { echo "FAIL write error message:"; cat "$tmp/err"; failures=$((failures + 1)); }
fi
for sigpipe in default ignored; do
  [ $sigpipe = ignored ] && trap '' PIPE
  seq 1 200000 | "$tool" -t "$routes" --stdin 2>"$tmp/err" | head -1 >/dev/null
  status=${PIPESTATUS[1]}
  [ "$status" = 0 ] && ! grep -q "cannot write" "$tmp/err" ||
    { echo "FAIL closed pipe: status $status ($sigpipe)"; failures=$((failures + 1)); }
done 2>/dev/null
trap - PIPE

# The library's refusal comes out in the tool's words, not as its raw line.
awk 'BEGIN { for (i = 0; i <= 2097152; ++i)
  printf "%d.%d.%d.%d\n", 10 + int(i / 16777216), int(i / 65536) % 256,
         int(i / 256) % 256, i % 256 }' >"$tmp/many"
expect library-refusal 1 "" "vell-lpm: cannot build the IPv4 trie of 2097153 prefixes; the library reports: sc_btrie_construct: too many entries (2097153 > 2097152)" \
  -- -t "$tmp/many" 10.0.0.1

# Lists as downloaded: a byte-order mark, ';' comments after prefixes, a
# JSON array of CIDR strings, range files whose data are texts (printed
# back) and whose ends are decimal; host bits refused, or masked on request.
printf '\xef\xbb\xbf; blocklist\n1.10.16.0/20 ; SBL256894\n' >"$tmp/drop"
printf '[\n  "10.0.0.0/8",\n  "2001:db8::/32"\n]\n' >"$tmp/cloud.json"
printf '"16777216","16777471","AU","Australia"\n2.0.0.0,2.0.0.255,Bogon list\n3.0.0.0,3.0.0.255,AU\n' >"$tmp/cc.csv"
expect lists 0 "1.10.17.1 1 1.10.16.0/20
10.1.1.1 2 10.0.0.0/8
2001:db8::1 1 2001:db8::/32" "" -- -t "$tmp/drop" -t "$tmp/cloud.json" 1.10.17.1 10.1.1.1 2001:db8::1
expect labels 0 "1.0.0.0/24 AU
2.0.0.0/24 Bogon list
3.0.0.0/24 AU
3.0.0.1 3.0.0.0/24 AU
4.0.0.1 - -" "" -- -t "$tmp/cc.csv" --list 3.0.0.1 4.0.0.1
"$tool" -t "$tmp/cc.csv" --json --list 2.0.0.1 2>/dev/null >"$tmp/json"
/usr/bin/python3 -c '
import json, sys
lines = [json.loads(l) for l in open(sys.argv[1]).read().splitlines()]
assert lines[1] == {"prefix": "2.0.0.0/24", "data": 2, "label": "Bogon list"}, lines
assert lines[3]["label"] == "Bogon list" and lines[3]["data"] == 2, lines
' "$tmp/json" || { echo "FAIL labels json"; failures=$((failures + 1)); }
printf '10.0.0.0/8 1\n10.1.2.3/16 2\n10.1.2.3/24 3\n' >"$tmp/host"
expect host-bits 1 "" "vell-lpm: $tmp/host:2: address '10.1.2.3' has bits set beyond its length /16 (--mask-host-bits clears them)" \
  -- -t "$tmp/host" 10.1.2.3
expect host-bits-masked 0 "10.1.2.3 3 10.1.2.0/24" \
  "vell-lpm: warning: $tmp/host: cleared the bits past the length of 2 prefixes (--mask-host-bits)" \
  -- -t "$tmp/host" --mask-host-bits 10.1.2.3

# ip route text: answers name the next hop; routes of tables other than
# main are skipped, and counted, unless chosen.
iproute=$src/tests/tool/samples/ip-route.txt
expect ip-route 0 "10.2.0.1 10.2.0.0/16 via 10.0.0.2 dev eth1, via 10.0.0.3 dev eth2
10.9.1.1 10.9.0.0/16 unreachable
8.8.8.8 0.0.0.0/0 via 192.0.2.1 dev eth0
192.0.2.10 192.0.2.0/24 dev eth0" "vell-lpm: warning: $iproute: read table main only, skipped 1 routes of other tables ('local': 1); --route-table NAME or all reads them" \
  -- -t "$iproute" 10.2.0.1 10.9.1.1 8.8.8.8 192.0.2.10
expect ip-route-all-tables 0 "192.0.2.10 192.0.2.10/32 local dev eth0" "" \
  -- -t "$iproute" --route-table all 192.0.2.10
# A route table and a data table together answer each in its own words.
expect routes-and-data 0 "10.2.0.1 10.2.0.0/16 via 10.0.0.2 dev eth1, via 10.0.0.3 dev eth2
2001:db8:1::1 6 2001:db8:1::/48" "" -- -t "$routes" -t "$iproute" --route-table all 10.2.0.1 2001:db8:1::1
# A default route without a gateway: --family settles what nothing tells.
printf 'default dev wg0 scope link\n' >"$tmp/wg"
expect default-family 0 "2001:db8::1 ::/0 dev wg0" "" -- -t "$tmp/wg" --family 6 2001:db8::1
expect bad-family 1 "" "vell-lpm: --family: expected 4 or 6, got 'inet6'" -- -t "$tmp/wg" --family inet6

# A stored 0 and a stored 4294967295 are answers, a miss is a miss.
printf '10.0.0.0/8 0\n11.0.0.0/8 4294967295\n' >"$tmp/zero"
expect stored-zero 0 "10.1.1.1 0 10.0.0.0/8
11.1.1.1 4294967295 11.0.0.0/8
12.1.1.1 - -" "" -- -t "$tmp/zero" 10.1.1.1 11.1.1.1 12.1.1.1

# Compressed tables from stdin, told by their magic bytes.
gzip -c "$routes" >"$tmp/in"
input=$tmp/in expect gzip-stdin 0 "10.1.2.3 3 10.1.0.0/16" "" -- -t - 10.1.2.3
input=

# This machine's own routes, when it has `ip`: the text and the JSON form
# list the same routes with the same next hops.
if command -v ip >/dev/null && [ -n "$(ip route 2>/dev/null)" ]; then
  { ip route; ip -6 route; } >"$tmp/routes.txt" 2>/dev/null
  ip -j route >"$tmp/r4.json" 2>/dev/null
  ip -6 -j route >"$tmp/r6.json" 2>/dev/null || echo '[]' >"$tmp/r6.json"
  "$tool" -t "$tmp/routes.txt" --list >"$tmp/text.list" 2>"$tmp/err" &&
    "$tool" -t "$tmp/r4.json" -t "$tmp/r6.json" --list >"$tmp/json.list" 2>>"$tmp/err" &&
    [ -s "$tmp/text.list" ] && cmp -s "$tmp/text.list" "$tmp/json.list" || {
    echo "FAIL ip route text and JSON:"; cat "$tmp/routes.txt" "$tmp/err"
    diff "$tmp/text.list" "$tmp/json.list"; failures=$((failures + 1)); }
fi

# --origin lists what an AS originates, once each.
printf '10.0.0.0/8 7\n10.1.0.0/16 8\n10.2.0.0/16 7\n10.2.1.0/24 7\n' >"$tmp/o"
expect origin 0 "10.0.0.0/8 7
10.2.0.0/16 7
10.2.1.0/24 7" "" -- -t "$tmp/o" --origin 7

# Update files: two peers, the first's routes answer while it announces
# them; a withdrawal of what was never announced is counted; the second
# peer's session ends at +20 s. --at answers as of a moment.
python3 "$src/tests/tool/make_updates.py" "$tmp/u.mrt"
skipped="vell-lpm: updates: skipped 0 BGP messages other than UPDATE, 1 withdrawals of routes not announced, 0 MP_(UN)REACH_NLRI of other address families"
expect updates-end 0 "10.1.2.3 - -
2001:db8::1 400 2001:db8::/32
10.2.0.1 - -" "$skipped" -- --updates "$tmp/u.mrt" 10.1.2.3 2001:db8::1 10.2.0.1
expect updates-at 0 "10.0.0.0/8 100
10.1.0.0/16 200
2001:db8::/32 400
10.1.2.3 200 10.1.0.0/16" "" -- --updates "$tmp/u.mrt" --at 1764064805 --list 10.1.2.3
expect updates-at-iso 0 "10.0.0.0/8 200
10.1.0.0/16 200" "$skipped" \
  -- --updates "$tmp/u.mrt" --at 2025-11-25T10:00:15Z --origin 200
# A table's prefixes stand behind every peer's routes; gzip from stdin
# (every build reads gzip; a 32-bit one may lack libbz2).
gzip -c "$tmp/u.mrt" >"$tmp/in"
input=$tmp/in expect updates-over-table 0 "10.2.0.1 2 10.0.0.0/8
10.1.2.3 3 10.1.0.0/16" "$skipped" -- -t "$routes" --updates - 10.2.0.1 10.1.2.3
input=
"$tool" --updates "$tmp/u.mrt" --json --stats 2>/dev/null >"$tmp/json"
/usr/bin/python3 -c '
import json, sys
u = json.loads(open(sys.argv[1]).readline())["updates"]
assert (u["records"], u["announcements"], u["withdrawals"], u["peers"],
        u["sessions_down"], u["publishes"]) == (5, 4, 2, 2, 1, 4), u
assert u["publish_us"]["max"] >= u["publish_us"]["p50"] > 0, u
' "$tmp/json" || { echo "FAIL updates json"; failures=$((failures + 1)); }
# A RIB dump's routes are its peers': updates replace and withdraw them,
# and a session's end takes them too.
python3 "$src/tests/tool/make_updates.py" "$tmp/rib.mrt" rib
expect updates-over-dump 0 "10.0.0.0/8 301
12.0.0.0/8 302" "" -- -t "$tmp/rib.mrt" --updates "$tmp/u.mrt" --at 1764064700 --list
expect updates-over-dump-at 0 "10.0.0.0/8 200
10.1.0.0/16 200
12.0.0.0/8 302
2001:db8::/32 400" "$skipped" -- -t "$tmp/rib.mrt" --updates "$tmp/u.mrt" --at 1764064810 --list
expect updates-over-dump-end 0 "12.1.1.1 302 12.0.0.0/8
10.1.1.1 - -" "$skipped" -- -t "$tmp/rib.mrt" --updates "$tmp/u.mrt" 12.1.1.1 10.1.1.1
# --bench: lookups on a second thread while the replay runs.
"$tool" -t "$tmp/rib.mrt" --updates "$tmp/u.mrt" --bench 1000 2>/dev/null >"$tmp/bench"
grep -qE '^replay bench: 1000 keys per family .*: [0-9.]+ M/s with no replay; [0-9.]+ M/s on a second thread during the replay' "$tmp/bench" ||
  { echo "FAIL replay bench:"; cat "$tmp/bench"; failures=$((failures + 1)); }
# Each kind of MRT file in the other's place is refused in words.
python3 "$src/tests/tool/make_updates.py" "$tmp/bad.mrt" corrupt
expect updates-as-table 1 "" "vell-lpm: $tmp/u.mrt: an MRT update file (BGP4MP records), not a table or RIB dump (TABLE_DUMP records): give it with --updates" \
  -- -t "$tmp/u.mrt" 10.0.0.1
expect rib-as-updates 1 "" "vell-lpm: $tmp/rib.mrt: a RIB dump (TABLE_DUMP records), not an update file (BGP4MP records): give it as a table with -t" \
  -- --updates "$tmp/rib.mrt" 10.0.0.1
printf '\0\0\0\0\0\20\0\2\0\0\0\0' >"$tmp/entry.mrt"
printf '\0\0\0\0\0\13\0\0\0\0\0\0' >"$tmp/ospf.mrt"
for opt in -t --updates; do
  expect "bgp4mp-entry$opt" 1 "" "vell-lpm: $tmp/entry.mrt: a RIB in BGP4MP_ENTRY records, an old form of MRT dump that vell-lpm does not read: give the RIB as a TABLE_DUMP_V2 dump" \
    -- $opt "$tmp/entry.mrt" 10.0.0.1
  expect "ospf$opt" 1 "" "vell-lpm: $tmp/ospf.mrt: an MRT file of OSPFv2 records (type 11), which hold no routes vell-lpm reads: give a RIB dump (TABLE_DUMP_V2 records) with -t, or BGP updates (BGP4MP records) with --updates" \
    -- $opt "$tmp/ospf.mrt" --format mrt 10.0.0.1
done
expect updates-corrupt 1 "" "vell-lpm: $tmp/bad.mrt: byte 336: bad MRT record (type 16, subtype 4): prefix length 33 beyond 32" \
  -- --updates "$tmp/bad.mrt" 10.0.0.1
expect updates-over-routes 1 "" "vell-lpm: --updates follows origin ASes; a route table has none" \
  -- -t "$iproute" --updates "$tmp/u.mrt"
expect bad-at 1 "" "vell-lpm: --at: expected UNIX seconds or a UTC time such as 2026-11-25T10:00:00Z, got 'noon'" \
  -- --updates "$tmp/u.mrt" --at noon

echo "vell-lpm cli: $failures failed"
[ $failures -eq 0 ]
