#!/usr/bin/env bash
# scenario_test.sh CHECKOUT NAME: `desk run NAME` beside a desk of its own takes all the steps, and every answer is "Yes".
set -euo pipefail
checkout=$1 name=$2
desk=$checkout/build/release/devkit/client/desk
script=$checkout/devkit/console/scenarios/$name.json

if [ -z "${DESK_URL:-}" ]; then
  # Periods of seconds: a scenario goes on when what it waits for has come.
  export DESK_CONF='POLL_STATUS_PERIOD_SEC=2
BATTERY_PERIOD=5
SDCARD_PERIOD=5'
  results=$checkout/build/scenarios/$name
  rm -rf "$results"
  exec "$checkout/scripts/with-desk" "$results" "$0" "$@"
fi

until grep -q '(Polling) end of a time' "$DESK_RUN/agent.log" 2>/dev/null; do sleep 0.2; done
status=0
said=$("$desk" run "$name") || status=$?
printf '%s\n' "$said"
[ "$status" = 0 ] || { echo "desk run $name ended with $status" && exit 1; }
steps=$(grep -o '"say"' "$script" | wc -l) questions=$(grep -o '"ask"' "$script" | wc -l)
[ "$(grep -cE '^[0-9:]{8}  ' <<<"$said")" = "$steps" ] || { echo "not $steps steps" && exit 1; }
[ "$(grep -c '^Yes  ' <<<"$said")" = "$questions" ] || { echo "not $questions answers that say yes" && exit 1; }
# Once more in the other form: one of them is enough.
[ "$name" != bad-night ] || [ "$("$desk" --json run "$name" 2>&1 | grep -vc '^{')" = 0 ] || { echo "--json prints something that is no object" && exit 1; }
