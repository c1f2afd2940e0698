#!/usr/bin/env bash
# Checks the include rules of the layer map (docs/layers.md):
#   - a folder includes only folders at or below its own rank, never above;
#   - an `internal/` header is included only from the folder that holds it;
#   - toolkit folders include only the host's public headers (up to host/script) and support/;
#   - the marvolith tool reaches the toolkit through the module, never through its headers
#     (plugin/version.h, the program's version, aside);
#   - the table in docs/layers.md is the one this script prints (./scripts/check-layers.sh --table).
# One line per violation; exits 1 when there is any.
set -euo pipefail
cd "$(dirname "$0")/.."

# Lowest first. Host folders are host/<name>; `support` is the top-level support/ folder.
host_layers=(base math undo io core support registry controllers scene params gfx objects script
             app interpreter render)
# The host's public surface for the toolkit ends here: app, interpreter and render belong to the
# application that hosts the module.
toolkit_host_top=script
toolkit_layers=(plugin controllers controls constraints chains layers animation ui_panel pose_kit
                rig curve_editor fbx module)

declare -A rank what
r=0
for l in "${host_layers[@]}"; do
  if [ "$l" = support ]; then key=support; else key=host/$l; fi
  rank[$key]=$r
  r=$((r + 1))
done
toolkit_host_rank=${rank[host/$toolkit_host_top]}
for l in "${toolkit_layers[@]}"; do
  rank[$l]=$r
  r=$((r + 1))
done
rank[apps]=$r

if [ "${1:-}" = --table ]; then
  echo "| rank | folder | may include |"
  echo "|---|---|---|"
  prev=""
  for l in "${host_layers[@]}"; do
    if [ "$l" = support ]; then key=support; else key=host/$l; fi
    echo "| ${rank[$key]} | \`$key\` | ${prev:-(nothing of ours)} |"
    prev="\`$key\` and below"
  done
  for l in "${toolkit_layers[@]}"; do
    echo "| ${rank[$l]} | \`$l\` | host up to \`host/$toolkit_host_top\`, \`support\`, toolkit folders below |"
  done
  echo "| ${rank[apps]} | \`apps\` | the host; the toolkit only through Marvolith.dlc |"
  exit 0
fi

fail=0
report() {
  echo "layers: $1"
  fail=1
}

# Every quoted include of our sources as "file<TAB>header", judged in one awk pass.
ranks=$(for key in "${!rank[@]}"; do echo "$key ${rank[$key]}"; done)
violations=$(git ls-files -co --exclude-standard -- '*.h' '*.cpp' | grep -v -E '^(tests|bench|fuzz)/' |
  xargs grep -H -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' |
  sed -E 's/^([^:]*):[[:space:]]*#[[:space:]]*include[[:space:]]*"([^"]*)".*/\1\t\2/' |
  awk -F'\t' -v ranks="$ranks" -v toolkit_top="$toolkit_host_rank" '
    function folder(path,   parts, n) {
      n = split(path, parts, "/")
      if (parts[1] == "host" && n > 2) return "host/" parts[2]
      return n > 1 ? parts[1] : ""
    }
    BEGIN {
      n = split(ranks, lines, "\n")
      for (i = 1; i <= n; i++) { split(lines[i], kv, " "); rank[kv[1]] = kv[2] }
    }
    {
      file = $1; inc = $2
      from = folder(file); to = folder(inc)
      if (!(from in rank) || !(to in rank)) next
      if (inc ~ /\/internal\//) {
        owner = inc; sub(/\/internal\/.*/, "", owner)
        if (index(file, owner "/") != 1) print file " includes " inc ", an internal header of " owner
      }
      if (to == from) next
      if (from == "apps") {
        if (to !~ /^host\// && to != "support" && inc != "plugin/version.h")
          print file " includes " inc ": the tool reaches the toolkit through the module"
        next
      }
      toolkit = from !~ /^host\// && from != "support"
      if (toolkit && to ~ /^host\// && rank[to] > toolkit_top) {
        print file " includes " inc ": the toolkit uses only the host\047s public headers"
        next
      }
      if (rank[to] > rank[from]) print file " includes " inc ": " to " sits above " from
    }')
if [ -n "$violations" ]; then
  while IFS= read -r line; do report "$line"; done <<<"$violations"
fi

# The map a newcomer reads must be the one enforced.
expected=$("$0" --table)
actual=$(sed -n '/<!-- layers:begin -->/,/<!-- layers:end -->/p' docs/layers.md | sed '1d;$d')
if [ "$expected" != "$actual" ]; then
  report "docs/layers.md's table differs from ./scripts/check-layers.sh --table"
fi

if [ "$fail" = 0 ]; then echo "layers: every include follows the map"; fi
exit "$fail"
