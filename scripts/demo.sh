#!/usr/bin/env bash
# Builds the library and the someip-json tool into build/, then decodes a sample payload of the
# example Navigation service (0x1234) with it and encodes the decoded JSON back into a payload.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target someip-json >/dev/null

tool=build/tools/someip-json
ids=(--formats examples/formats --service 0x1234 --method 2 --type response)

# GetRoute response of the example Navigation service: little endian, 16-bit length fields, 32-bit
# alignment.
#   07 00 00 00                 routeId = 7
#   14 00                       waypoints: 20 bytes follow
#     08 00 64 00 00 00 CE FF FF FF    waypoint {x = 100, y = -50}, 8 bytes after its length field
#     08 00 EC FF FF FF 2C 01 00 00    waypoint {x = -20, y = 300}
#   FF FF                       padding: the element after a vector starts on a 4-byte boundary
#   00 00 48 41                 lengthKm = 12.5
payload="07 00 00 00 14 00 08 00 64 00 00 00 CE FF FF FF 08 00 EC FF FF FF 2C 01 00 00 FF FF 00 00 48 41"

echo "== decode: $payload"
json=$("$tool" decode "${ids[@]}" --payload "$payload")
printf '%s\n' "$json"

echo "== encode of the JSON above"
printf '%s\n' "$json" | "$tool" encode "${ids[@]}"
