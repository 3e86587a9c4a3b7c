#!/usr/bin/env bash
# Two public linters read data/openapi.json, each with its recommended rules; a warning counts as an error. They are fetched
# into build/ the first time, so this needs npm and its registry and is not a part of the test command.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
folder=build/openapi-lint
if [ ! -e "$folder/done" ]; then
    mkdir -p "$folder"
    echo '{"private": true}' >"$folder/package.json"
    npm install --prefix "$folder" --no-audit --no-fund --ignore-scripts --loglevel=error \
        @redocly/cli@2.11.1 @stoplight/spectral-cli@6.15.0
    touch "$folder/done"
fi
echo 'extends: ["spectral:oas"]' >"$folder/spectral.yaml"
export REDOCLY_TELEMETRY=off REDOCLY_SUPPRESS_UPDATE_NOTICE=true NO_UPDATE_NOTIFIER=1
"$folder/node_modules/.bin/redocly" lint --extends=recommended-strict data/openapi.json
"$folder/node_modules/.bin/spectral" lint --ruleset "$folder/spectral.yaml" --fail-severity=warn data/openapi.json
