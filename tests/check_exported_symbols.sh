#!/bin/sh
# The library's exported interface must be the one listed in tests/exported_symbols.txt: a symbol that
# appears or disappears is a decision, made by regenerating the list and committing it with the change.
#   sh tests/check_exported_symbols.sh LIB LIST            compare
#   SOMEIP_UPDATE_EXPORTS=1 sh tests/check_exported_symbols.sh LIB LIST   (or: ... LIB LIST --update) rewrite LIST
# Compared: the demangled names of our own classes, functions and variables and of the C entry points.
# Left out, because they depend on the compiler, the optimisation level or the sanitizers rather than on
# our declarations: the standard library's template instantiations, template instantiations of our own
# (emitted only where not inlined), typeinfo, vtables, guard variables and sanitizer bookkeeping.
lib="$1"
list="$2"
update="${SOMEIP_UPDATE_EXPORTS:-}"
[ "${3:-}" = --update ] && update=1
if [ -z "$lib" ] || [ -z "$list" ]; then
  echo "usage: $0 LIBRARY LIST [--update]" >&2
  exit 2
fi

actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
# "address type name": the name may hold blanks once demangled. A name that starts with a return type
# is a template instantiation; a '<' before the parameter list is one as well.
nm -D --defined-only -C "$lib" | cut -d' ' -f3- |
  grep -E '^(ZQSomeIP|Inner_someip|zq_someip|g_logfunc)' |
  awk '{ head = $0; sub(/\(.*/, "", head); if (index(head, "<") == 0) print }' |
  LC_ALL=C sort -u >"$actual"

if [ -n "$update" ]; then
  cp "$actual" "$list"
  echo "wrote $(wc -l <"$list") symbols to $list"
  exit 0
fi
if ! diff -u "$list" "$actual" >/dev/null 2>&1; then
  echo "The exported symbols of $lib differ from $list"
  echo "('-' listed but no longer exported, '+' exported but not listed):"
  diff -u "$list" "$actual" | sed '1,2d'
  echo "If the change is intended, regenerate the list and commit it with the change:"
  echo "  SOMEIP_UPDATE_EXPORTS=1 ctest -R ExportedSymbolList   (or: sh $0 $lib $list --update)"
  exit 1
fi
echo "$(wc -l <"$actual") exported symbols, as listed"
