# The commands that build, test and check: build, test, fuzz, dist, format, clean. Sourced, never run.

DefaultPresets=(native win64 win32)

command_setup() {
  (($# == 0)) || die "setup takes no arguments."
  ensure_setup
  say "Everything is ready."
}

# Builds one preset, or only some of its targets; two builds of the same folder wait for each other.
# usage: build_preset PRESET [TARGET...]
build_preset() (
  mkdir -p "$Root/build"
  hold_lock "$Root/build/$1.lock" "another build of $1"
  cd "$Root"
  [[ -e build/$1/build.ninja ]] || cmake --preset "$1" 5>&- 9>&- || exit
  cmake --build --preset "$1" ${2+--target "${@:2}"} 5>&- 9>&-
)

command_build() {
  local Preset
  (($#)) || set -- "${DefaultPresets[@]}"
  ensure_setup
  for Preset; do build_preset "$Preset" || die "The build of $Preset failed."; done
}

# Builds for a command whose own output matters: nothing is shown unless it fails.
# usage: build_quietly PRESET [TARGET...]
build_quietly() {
  mkdir -p "$Root/build"
  quietly "$Root/build/$1.log" build_preset "$@" || die "The build of $1 failed (all of its output: build/$1.log)."
}

# ---- test ----

# The number of tests CTest finds in a build folder.
# usage: count_tests PRESET -> Count
count_tests() {
  local Listing
  Listing=$(ctest --test-dir "$Root/build/$1" -N 2>&1) || true
  Count=$(sed -n 's/^Total Tests: //p' <<<"$Listing")
  ((${Count:-0} > 0)) || { echo "$Listing" >&2 && die "CTest finds no tests in the $1 build."; }
}

is_wine_preset() { [[ $1 == win* ]]; }

# Prepares the prefix of each Wine preset.
# usage: start_prefixes PRESET...
start_prefixes() {
  local Preset Bits
  for Preset; do
    is_wine_preset "$Preset" || continue
    Bits=$([[ $Preset == *64* ]] && echo 64 || echo 32)
    open_prefix "$Root/build/$Preset/prefix" "$Bits" "$Root/build/$Preset/Mendwork.dll"
  done
}

# usage: stop_prefixes PRESET...
stop_prefixes() {
  local Preset
  for Preset; do
    [[ ! -d $Root/build/$Preset/prefix ]] || (wine_env "$Root/build/$Preset/prefix" && wine_stop)
  done
}

# Joins the presets' tests into one CTest run: one process looks after all of them, and one line sums them up.
# Each Wine preset's tests share a resource lock, so that there is one at a time in each prefix.
# usage: run_suites PRESET... -- CTEST-ARG... -> the status of CTest
run_suites() {
  local Presets=()
  while [[ $1 != -- ]]; do Presets+=("$1") && shift; done
  shift
  mkdir -p "$TestDir"
  printf 'subdirs("%s")\n' "${Presets[@]/#/$Root/build/}" >"$TestDir/CTestTestfile.cmake"
  # In the background, because a signal that arrives while bash waits for a command is handled only afterwards.
  # A test that fails is run once more: under Wine a process, a window or a lock of the loader now and then fails to
  # start. What needed it is shown with the result.
  ctest --test-dir "$TestDir" -j "$(nproc)" --no-tests=error --output-on-failure --repeat until-pass:2 "$@" \
    >"$TestDir/ctest.log" 2>&1 </dev/null &
  CTestPid=$!
  wait "$CTestPid"
}

# Shows what matters of CTest's output, its own line of summary last.
# usage: show_result STATUS
show_result() {
  local Log=$TestDir/ctest.log Summary
  Summary=$(grep -E '^[0-9]+% tests passed, ' "$Log") || { cat "$Log" && die "CTest could not run the tests."; }
  if (($1)); then
    grep -vE '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#.* Passed +[0-9.]+ sec$|^[0-9]+% tests passed, ' "$Log" || true
  else
    sed -nE 's/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: ([^ ]+) .*\*\*\*(Failed|Timeout).*/mend: \1 passed only when it was run again./p' "$Log"
    grep '^Total Test time' "$Log"
  fi
  echo "$Summary"
}

# The way out of a test run, also of an interrupted one: nothing stays behind.
end_test() {
  [[ -z $CTestPid ]] || kill "$CTestPid" 2>/dev/null || true
  stop_prefixes "${TestPresets[@]}"
}

command_test() {
  local Preset Count Expected=0 Status=0
  TestDir=$Root/build/all TestPresets=() CTestPid=''
  while (($#)) && [[ $1 != -- ]]; do TestPresets+=("$1") && shift; done
  (($# == 0)) || shift
  ((${#TestPresets[@]})) || TestPresets=("${DefaultPresets[@]}")
  export KeepDesktop=1 # for cmake/wine-run, too
  claim test
  command_build "${TestPresets[@]}"
  trap end_test EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  start_prefixes "${TestPresets[@]}"
  for Preset in "${TestPresets[@]}"; do
    count_tests "$Preset"
    Expected=$((Expected + Count))
    say "$Preset: $Count tests"
  done
  run_suites "${TestPresets[@]}" -- "$@" || Status=$?
  show_result "$Status"
  # Unless the caller chose some, every test must have run.
  (($# || Status)) || grep -q " out of $Expected\$" "$TestDir/ctest.log" ||
    die "CTest did not run all of the $Expected tests."
  return "$Status"
}

command_faults() {
  ensure_setup
  "$Root/tools/faults.py" "$@"
}

# ---- fuzz ----

# usage: run_fuzzer TARGET SECONDS
run_fuzzer() {
  local Dir=$Root/build/fuzz
  mkdir -p "$Dir/corpus/$1" "$Dir/broken"
  quietly "$Dir/$1.log" "$Dir/tests/fuzz/fuzz_$1" -max_total_time="$2" -max_len=70000 -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$Dir/broken/$1-" "$Dir/corpus/$1" "$Root/tests/fuzz/kept/$1" ||
    die "The input that broke $1 is in build/fuzz/broken (all of the output: build/fuzz/$1.log)."
  say "$1: $(sed -n 's/^stat::number_of_executed_units: *//p' "$Dir/$1.log") inputs in $2 seconds, none broke it."
}

command_fuzz() {
  local Target Seconds=${1-60}
  [[ $# -le 1 && $Seconds =~ ^[1-9][0-9]*$ ]] || die "fuzz takes a number of seconds."
  ensure_setup --64-will-do
  build_quietly fuzz
  claim fuzz # the same lock as the build's, which is free again by now
  for Target in "$Root"/tests/fuzz/kept/*/; do run_fuzzer "$(basename "$Target")" "$Seconds"; done
}

# ---- dist ----

# What every Windows has.
SystemLibraries=(advapi32 comctl32 gdi32 kernel32 msvcrt ole32 oleaut32 shell32 shlwapi user32 version)
ExportedFunctions='DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer'
KitFunctions='MendworkKitRegisterClasses MendworkKitRevokeClasses'

# Holds a program or DLL against what it may import.
# usage: check_imports ARCHITECTURE FILE -> Dump
check_imports() {
  local Library Name=${2#"$Root/"}
  Dump=$("$1-w64-mingw32-objdump" -p "$2") || die "$Name is not a Windows program."
  while read -r Library; do
    [[ " ${SystemLibraries[*]/%/.dll} " == *" ${Library,,} "* ]] || die "$Name needs $Library, which is no part of Windows."
  done < <(sed -n 's/^\tDLL Name: //p' <<<"$Dump")
}

# Holds a DLL against what it must export, too.
# usage: check_library ARCHITECTURE FILE [OTHER-FUNCTIONS]
check_library() {
  local Dump Exports Name=${2#"$Root/"} Expected="$ExportedFunctions${3+ $3}"
  check_imports "$1" "$2"
  Exports=$(sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/s/^\t\[ *[0-9]*\] //p' <<<"$Dump" | sort | paste -sd ' ')
  # The guard around foreign code (src/retry/guarded_call.cpp) needs the system to look for handlers in this module.
  ! grep -q 'NO_SEH' <<<"$Dump" || die "$Name is marked as one without exception handlers, so what a foreign module raises would end the process."
  [[ $Exports == "$Expected" ]] || die "$Name exports \"$Exports\" instead of \"$Expected\"."
}

# Builds what a preset hands out into a folder of its own.
# usage: install_preset PRESET
install_preset() {
  build_preset "$1" dist || die "The build of $1 failed."
  rm -rf "$Root/dist/$1"
  quietly "$Root/build/$1.log" cmake --install "$Root/build/$1" --prefix "$Root/dist/$1" ||
    die "The $1 build could not be installed."
}

# Adds what no build makes, and packs it.
# usage: hand_out PRESET
hand_out() {
  local Sum
  Sum=$(python3 "$Root/packaging/package.py" "$Root/dist/$1") || die "dist/$1 could not be completed."
  say "dist/$1 is ready: $Sum"
}

command_dist() {
  local Preset Architecture
  (($# == 0)) || die "dist takes no arguments."
  ensure_setup
  rm -f "$Root"/dist/*.zip
  for Preset in win32 win64; do
    install_preset "$Preset"
    Architecture=x86_64
    [[ $Preset == win64 ]] || Architecture=i686
    check_library "$Architecture" "$Root/dist/$Preset/Mendwork.dll"
    check_library "$Architecture" "$Root/dist/$Preset/MendworkKit.dll" "$KitFunctions"
    check_imports "$Architecture" "$Root/dist/$Preset/mendctl.exe"
    hand_out "$Preset"
  done
  install_preset linux
  hand_out linux
}

# ---- format, clean ----

command_format() {
  local Files=() Folders=() Folder File Differing=0
  for Folder in src tests bench torture examples; do [[ ! -d $Root/$Folder ]] || Folders+=("$Folder"); done
  ensure_only_packages clang-format
  cd "$Root"
  mapfile -d '' -t Files < <(find "${Folders[@]}" \( -name '*.cpp' -o -name '*.h' \) -print0 | sort -z)
  ((${#Files[@]})) || die "There is nothing to format."
  case ${1-} in
    '') clang-format -i "${Files[@]}" ;;
    --check)
      for File in "${Files[@]}"; do
        clang-format "$File" | cmp -s - "$File" || { echo "$File" && Differing=1; }
      done
      ((Differing == 0)) || die "These files are not formatted; ./mend format does it."
      ;;
    *) die "format does not know \"$1\"." ;;
  esac
}

command_clean() {
  local Prefix
  [[ $# == 0 || $* == --cache ]] || die "clean does not know \"$*\"."
  for Prefix in "$Root"/build/*/prefix; do
    [[ ! -d $Prefix || ! -x $WineServer ]] || remove_prefix "$Prefix"
  done
  rm -rf "$Root/build" "$Root/dist"
  [[ ${1-} != --cache ]] || rm -rf "$CacheHome"
}
