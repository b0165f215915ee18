#!/usr/bin/env bash
# Engine modules are pure logic: no Qt, X11, xcb or socket headers.
set -euo pipefail
cd "$(dirname "$0")/.."
engines=(ExpansionEngine ClipboardKit MarluneCLIProtocol LibraryImport AIKit/Engine MarluneCore)
pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"](Q[A-Za-z]+|Qt[A-Za-z]*/|X11/|xcb/|xkbcommon/|sys/socket\.h|sys/un\.h|netinet/|arpa/inet\.h|netdb\.h)'
status=0
for dir in "${engines[@]}"; do
  [ -d "$dir" ] || continue
  if hits=$(grep -rnE "$pattern" "$dir" --include='*.h' --include='*.cpp' 2>/dev/null); then
    echo "Engine module $dir includes a platform header:" >&2
    echo "$hits" >&2
    status=1
  fi
done
[ $status -eq 0 ] && echo "[Marlune] Engine modules include no Qt, X11 or socket headers."
exit $status
