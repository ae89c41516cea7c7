#!/usr/bin/env bash
# What is told of the protocol is what the headers have today, and with the dissector the packet
# analyser shows every message.
#
#     protocol.sh VIMBRA-PROTOCOL
source "$(dirname "$0")/common.sh"

"$1" --markdown >"$work/protocol.md" || fail "vimbra-protocol --markdown"
diff -u "$SOURCE/docs/protocol.md" "$work/protocol.md" >"$work/diff" || {
    head -n 40 "$work/diff"
    fail "docs/protocol.md is old: vimbra-protocol --markdown >docs/protocol.md"
}
if grep -nE '\| +\|$' "$work/protocol.md"; then
    fail "a field without a meaning: give it a comment where it is declared"
fi
"$1" --json >"$work/protocol.json" || fail "vimbra-protocol --json"
python3 - "$work/protocol.json" <<'END' || fail "the description does not hold together"
import json, sys
told = json.load(open(sys.argv[1]))
def whole(record):
    end = max(f["offset"] + f["size"] * f["count"] for f in record["fields"])
    assert end <= record["size"], record["name"]
    for field in record["fields"]:
        if "record" in field:
            assert field["record"]["size"] == field["size"], field["name"]
            whole(field["record"])
for message in told["requests"] + told["notifications"]:
    for part in ("body", "reply"):
        if (message.get(part) or {}).get("record"):
            whole(message[part]["record"])
names = {request["name"] for request in told["requests"]}
assert all(each["request"] in names for each in told["notifications"])
END
"$1" --lua >"$work/vimbra.lua" || fail "vimbra-protocol --lua"
"$SOURCE/tests/abi/dissector.py" "$work/protocol.json" "$work/vimbra.lua" || fail "the dissector"
"$1" --nonsense >"$work/log" 2>&1 && fail "nonsense is no usage error"
grep -q '^usage: ' "$work/log" || fail "no usage line"
