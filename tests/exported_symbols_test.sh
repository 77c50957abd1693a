#!/usr/bin/env bash
# Fails when the shared object exports anything outside its interface: the
# uvt and uvt_extern namespaces (with their vtables, type information and
# thunks), the uvt__ERR_UVT_* accessors and the named C entry points; and
# when a checked memory variant is exported under its C name.
set -euo pipefail
lib=$1

c_entry_points='throw_uvt_bad_allocation|throw_uvt_bad_function_call|throw_uvt_bad_weak_ptr'
c_entry_points+='|memcpy|memmove|memset|strlen|strnlen|strcpy|strcat|wcslen|wcsnlen|wcscpy|wcscat'
# The checked variants exist only inside uvt::impl: exported under their C
# names they would take over the C library's fortified calls.
checked='__memcpy_chk __memmove_chk __memset_chk __strncpy_chk __strcpy_chk __strcat_chk __wcscpy_chk __wcscat_chk'
# Mangled names: optional special-name prefix (vtable, typeinfo, guard
# variable, thunk, local entity), then a name nested in uvt or uvt_extern.
namespaced_op='^_Z(TV|TT|TI|TS|GV|Thn?[0-9]+_|Tvn?[0-9]+_n?[0-9]+_)?Z?N?K?(3uvt|10uvt_extern)'
accessors='^_Z[0-9]+uvt__ERR_UVT_[A-Z_]+v$'

symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | grep -v '^$' || true)
[ -n "$symbols" ] || { echo "no exported symbols found in $lib"; exit 1; }
strays=$(echo "$symbols" | grep -Ev "$namespaced_op|$accessors|^($c_entry_points)\$" || true)
[ -z "$strays" ] || { echo "symbols exported outside the interface:"; echo "$strays" | c++filt; exit 1; }
demangled=$(echo "$symbols" | c++filt)
for name in $checked; do
    ! grep -qx -- "$name" <<<"$symbols" || { echo "$name is exported under its C name"; exit 1; }
    grep -q "^uvt::impl::$name(" <<<"$demangled" || { echo "uvt::impl::$name is not exported"; exit 1; }
done
count=$(echo "$symbols" | grep -cE "$accessors" || true)
[ "$count" -eq 43 ] || { echo "expected 43 error accessors, found $count"; exit 1; }
echo "$(echo "$symbols" | wc -l) exported symbols, all in the interface"
