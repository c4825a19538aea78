#!/usr/bin/env bash
# Checks that a built libvell-ds.so exports exactly the public names of the
# headers in include/, imports nothing but the host services and libc, and
# needs no library at run time but libc.
set -euo pipefail
lib=$1
top=$(cd "$(dirname "$0")/.." && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Public names: every function declared in a family header, plus sc_kctype;
# inline helpers defined in a header are not part of the library. The host
# headers declare what the library imports, not what it exports.
ls "$top"/include/sc_*.h | grep -v '/sc_host' | xargs cat |
  sed 's@//.*@@' | tr -s ' \n' ' ' | sed 's@/\*[^*]*\*\+\([^/*][^*]*\*\+\)*/@@g' >"$tmp/decls"
grep -oE '\bsc_[a-z0-9_]+ *\(' "$tmp/decls" | tr -d ' (' | sort -u >"$tmp/all"
{ grep -oE 'inline [^(]*\bsc_[a-z0-9_]+ *\(' "$tmp/decls" || true; } |
  { grep -oE 'sc_[a-z0-9_]+ *\($' || true; } | tr -d ' (' | sort -u >"$tmp/inline"
comm -23 "$tmp/all" "$tmp/inline" >"$tmp/public"
echo sc_kctype >>"$tmp/public"
sort -u -o "$tmp/public" "$tmp/public"

nm -D --defined-only "$lib" | awk '{print $3}' | sort -u >"$tmp/exported"
status=0
extra=$(comm -13 "$tmp/public" "$tmp/exported")
missing=$(comm -23 "$tmp/public" "$tmp/exported")
if [ -n "$extra" ]; then
  echo "exported but not public:"; echo "$extra"; status=1
fi
if [ -n "$missing" ]; then
  echo "public but not exported:"; echo "$missing"; status=1
fi

# Imports: host services and the few libc routines; no C++ runtime.
allowed='^(__sc_[a-z_]+|sc_printf|sc_qsort|sc_sz_get_max_alloc|mem(cpy|set|cmp|move)|strncpy|gettimeofday|__stack_chk_fail|__stack_chk_fail_local|__cxa_finalize|__gmon_start__|_ITM_.*)(@.*)?$'
bad=$(nm -D --undefined-only "$lib" | awk '{print $2}' | grep -vE "$allowed" || true)
if [ -n "$bad" ]; then
  echo "unexpected imports:"; echo "$bad"; status=1
fi

needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
if [ "$needed" != "libc.so.6" ]; then
  echo "run-time dependencies other than libc: $needed"; status=1
fi
[ $status -eq 0 ] && echo "exports of $lib: $(wc -l <"$tmp/exported") public names, libc only"
exit $status
