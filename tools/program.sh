# The commands that run Windows programs: run, demo, bench, pictures. Sourced, never run.

command_run() {
  local Bits=32
  [[ ${1-} != --win64 ]] || { Bits=64 && shift; }
  (($#)) || die "What shall be run? ./mend run --help tells more."
  ensure_setup
  build_quietly "win$Bits" Mendwork MendworkKit
  open_prefix "$Root/build/run/prefix" "$Bits" "$Root/build/win$Bits/Mendwork.dll"
  ensure_base_folder
  run_program "$Bits" "$@"
}

# The application's base folder, unless the prefix of wine_env has one.
ensure_base_folder() {
  local Mark=$WINEPREFIX/.mendwork/base
  [[ ! -e $Mark ]] || return 0
  mkdir -p "$WINEPREFIX/drive_c/Orvane"
  wine_do reg query 'HKCU\Software\Orvane\Core' /ve >/dev/null 2>&1 </dev/null ||
    wine_do reg add 'HKCU\Software\Orvane\Core' /ve /d 'C:\Orvane' /f >/dev/null </dev/null ||
    die "The application's base folder could not be set."
  touch "$Mark"
}

# An installer is a program of 32 bits, and registers the libraries itself.
demo_installer() {
  ensure_setup
  build_quietly win32 demo MendworkKit
  claim demo
  "$Root/examples/installer/run-installer" "$Root/build/win32" "$Root/build/demo/installer/prefix"
}

# Without the 32-bit half of Wine there is still something to see.
command_demo() {
  [[ $* != --installer ]] || { demo_installer && return; }
  local Bits=32 Script=$Root/examples/demo/run-demo Prefix=$Root/build/demo/prefix
  [[ -x $Script ]] || die "There is no examples/demo/run-demo."
  ensure_setup --64-will-do
  ((Has32)) || {
    Bits=64
    say "The 32-bit half of Wine cannot be had here: this demo runs the 64-bit build instead of the product itself."
  }
  build_quietly "win$Bits" demo
  claim demo
  remove_prefix "$Prefix"
  open_prefix "$Prefix" "$Bits" "$Root/build/win$Bits/Mendwork.dll"
  stop_at_end
  ensure_base_folder
  MEND_BITS=$Bits MEND_BUILD=$Root/build/win$Bits MEND_PREFIX=$Prefix MEND_RUN=$Root/tools/run-windows \
    "$Script" "$@"
}

# Nothing stays in wine_env's prefix when the command ends, however it ends.
stop_at_end() {
  trap wine_stop EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# Which of the two benchmark programs is meant: a case that is named belongs to one of them.
bench_is_native() { [[ " $* " != *" --only "* || " $* " == *" native-"* ]]; }
bench_is_windows() { [[ " $* " != *" native-"* ]]; }

# usage: check_results FILE ARG...
check_results() {
  [[ -s $1 || " $* " == *" --list "* || " $* " == *" --help "* ]] || die "The benchmark left no build/bench/$1."
}

# The benchmark programs start in the folder of the results.
command_bench() {
  local Dir=$Root/build/bench
  mkdir -p "$Dir"
  ensure_setup
  ! bench_is_native "$@" || build_quietly native mendwork_native_bench
  ! bench_is_windows "$@" || build_quietly win32 mendwork_bench
  claim bench
  cd "$Dir"
  rm -f results.json native.json
  ! bench_is_native "$@" || {
    build_quietly linux mendctl
    MENDCTL=$Root/build/linux/mendctl "$Root/build/native/bench/mendwork_native_bench" --json native.json "$@" || die "The native benchmark failed."
    check_results native.json "$@"
  }
  bench_is_windows "$@" || return 0
  open_prefix "$Dir/prefix" 32 "$Root/build/win32/Mendwork.dll"
  stop_at_end
  ensure_base_folder
  run_program 32 "$Root/build/win32/bench/mendwork_bench.exe" "$@" || die "The benchmark failed with status $?."
  check_results results.json "$@"
}

# One share of the torture, in a prefix of its own.
# usage: torture_share SHARD COUNT ARG...
torture_share() {
  local Dir=$Root/build/torture/$1 Shard=$1/$2
  open_prefix "$Dir/prefix" 32 "$Root/build/win32/Mendwork.dll"
  trap wine_stop EXIT
  ensure_base_folder
  cd "$Dir"
  shift 2
  run_program 32 "$Root/build/win32/torture/mendwork_torture.exe" --shard "$Shard" "$@" | sed -u 's,\r$,,'
}

# Every part is divided among two processes, each with a prefix and a processor of its own.
command_torture() {
  local Dir=$Root/build/torture Shard Pids=() Status=0 Word
  ensure_setup
  build_quietly win32 mendwork_torture
  claim torture
  mkdir -p "$Dir/0" "$Dir/1"
  rm -f "$Dir"/[01]/results.txt
  for Word; do
    [[ $Word != --shard ]] || die "$Word is not for a run that is divided: it sets this itself."
    [[ $Word != --list && $Word != --help ]] || {
      torture_share 0 1 "$@"
      return
    }
  done
  trap 'kill "${Pids[@]}" 2>/dev/null' EXIT
  for Shard in 0 1; do
    (torture_share "$Shard" 2 "$@") &
    Pids+=($!)
  done
  for Shard in "${Pids[@]}"; do wait "$Shard" || Status=1; done
  trap - EXIT
  for Shard in 0 1; do
    [[ -s $Dir/$Shard/results.txt && $(tail -n 1 "$Dir/$Shard/results.txt") == end* ]] ||
      die "The torture did not come to its end: build/torture/$Shard/results.txt is missing or not whole."
  done
  sum_torture "$Dir/0/results.txt" "$Dir/1/results.txt"
  ((Status == 0)) || die "Not every case of the torture ended as it must."
}

# One line for each part, both shares together; each is a line "NAME CASES GOOD" of the results files.
sum_torture() {
  cat "$@" | grep -E '^[a-z-]+ [0-9]+ [0-9]+$' | awk '
    !($1 in Cases) { Names[++Count] = $1 }
    { Cases[$1] += $2; Good[$1] += $3; All += $2; AllGood += $3 }
    END {
      for (At = 1; At <= Count; ++At) printf "%-9s %6d of %6d cases as they must be\n", Names[At], Good[Names[At]], Cases[Names[At]]
      printf "torture: %d of %d cases as they must be\n", AllGood, All
    }'
}

# Starts a display of our own for this command, on a free number.
start_display() {
  rm -f "$1"
  mkfifo "$1"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$1" 2>/dev/null 5>&- &
  DisplayPid=$!
  read -r Display <"$1" || die "Xvfb did not start."
  rm "$1"
  export DISPLAY=:$Display
}

# What the console prints on a terminal, and the page of a debug log, in a browser. The state is that of an updater
# which ended in the middle of its work, in wine_env's prefix.
# usage: picture_console FOLDER-FOR-WORK FOLDER-OF-PICTURES
picture_console() {
  local Console=$Root/build/win64/mendctl.exe Words
  ensure_base_folder
  run_program 64 "$Root/tools/pictures/interrupted.vbs" || die "The updater of the pictures failed."
  for Words in status plan show; do
    printf '\x1b[2m$\x1b[0m mendctl %s\n' "$Words"
    run_program 64 "$Console" "$Words" --color always || (($? == 1)) || die "mendctl $Words failed."
    echo
  done | sed 's/\r$//' | aha --black --title mendctl >"$1/terminal.html"
  rm -f "$1/page.html"
  cp "$Root/tests/mendctl/update.log" "$1/update.log"
  (cd "$1" && "$Root/build/native/mendctl" log --file update.log --html page.html >/dev/null) || (($? == 1)) ||
    die "The page of the debug log was not made."
  chromium --headless --no-sandbox --hide-scrollbars --window-size=1160,640 --screenshot="$2/mendctl.png" \
    "file://$1/terminal.html" 2>"$1/chromium.log" >&2 || die "chromium failed."
  "$Root/tests/mendctl/page_test.py" "$1/page.html" "$2/call-log.png" || die "The page of the debug log does not work."
}

# 64-bit only: 32-bit windows do not paint here. The program draws into the folder it is given; what it leaves
# as bitmaps becomes PNG.
command_pictures() {
  local Dir=$Root/build/pictures Pictures=$Root/docs/pictures
  (($# == 0)) || die "pictures takes no arguments."
  ensure_setup
  ensure_only_packages "${PicturePackages[@]}"
  build_quietly win64
  build_quietly native mendctl
  claim pictures
  remove_prefix "$Dir/prefix"
  open_prefix "$Dir/prefix" 64 "$Root/build/win64/Mendwork.dll"
  # The template draws nowhere; a prefix that knows no driver takes the display's.
  wine_do reg delete 'HKCU\Software\Wine\Drivers' /v Graphics /f >/dev/null </dev/null
  wine_stop
  start_display "$Dir/display"
  trap 'wine_stop; kill "$DisplayPid"' EXIT
  trap 'exit 130' INT TERM
  mkdir -p "$Pictures"
  windows_path "$Pictures"
  run_program 64 "$Root/build/win64/tools/pictures/picture_maker.exe" "$WindowsPath" || die "The picture maker failed with status $?."
  [[ -z $(compgen -G "$Pictures/*.bmp") ]] || { mogrify -format png "$Pictures"/*.bmp && rm "$Pictures"/*.bmp; }
  picture_console "$Dir" "$Pictures"
  [[ -n $(compgen -G "$Pictures/*.png") ]] || die "The picture maker left no pictures in docs/pictures."
}
