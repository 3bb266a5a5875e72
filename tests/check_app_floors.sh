#!/usr/bin/env bash
# Fails when an application area includes a header from a higher floor, when an area
# has no floor, when a floor below the views (base, desktop, recorder, editor, hotkeys)
# includes Qt Quick or QML (views adapt the models, never the other way round), or
# when a file other than desktop/Desktop.cpp names a platform backend (…X11.h; a
# backend's own source file includes its header).
set -euo pipefail
app=${1:?usage: check_app_floors.sh LUMENVALE_DIR}

# Keep in step with the floors listed in Lumenvale/CMakeLists.txt.
declare -A floor=([base]=1 [desktop]=2 [recorder]=3 [editor]=3 [hotkeys]=3 [cli]=4 [gui]=4 [shell]=5)
lowestViewFloor=4

problems=()
for dir in "$app"/*/; do
  area=$(basename "$dir")
  if [[ -z ${floor[$area]:-} ]]; then
    problems+=("$area/ has no floor: add it to the table in $0")
    continue
  fi
  while IFS= read -r hit; do
    included=$(sed -E 's/^[^:]*:[0-9]+:[[:space:]]*#[[:space:]]*include[[:space:]]*"([a-z]+)\/.*/\1/' <<<"$hit")
    if [[ -z ${floor[$included]:-} ]]; then
      problems+=("$hit: includes from $included/, which has no floor")
    elif ((floor[$included] > floor[$area])); then
      problems+=("$hit: $area (floor ${floor[$area]}) includes $included (floor ${floor[$included]})")
    fi
  done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[a-z]+/' "$dir" \
             --include='*.h' --include='*.cpp' || true)
  if ((floor[$area] < lowestViewFloor)); then
    while IFS= read -r hit; do
      problems+=("$hit: $area is below the views and must not include Qt Quick or QML")
    done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*<(QtQuick|QtQml|QQuick|QQml)' \
               "$dir" --include='*.h' --include='*.cpp' || true)
  fi
done

while IFS= read -r hit; do
  # A backend's own source file includes its own header.
  file=$(basename "${hit%%:*}")
  header=$(sed -E 's/^[^:]*:[0-9]+:[^<"]*[<"]([^>"]*)[>"].*/\1/' <<<"$hit")
  [[ "${file%.cpp}" == "$(basename "${header%.h}")" ]] && continue
  problems+=("$hit: only desktop/Desktop.cpp chooses the platform's backends")
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"][^>"]*(X11|Portal|PipeWire)\.h' \
           "$app" --include='*.h' --include='*.cpp' | grep -v "^$app/desktop/Desktop\.cpp:" || true)

if ((${#problems[@]} > 0)); then
  echo "The application's floors are crossed:" >&2
  printf '  %s\n' "${problems[@]}" >&2
  exit 1
fi
echo "Every application area includes only its own floor and the floors below, and only"
echo "desktop/Desktop.cpp names a platform backend."
