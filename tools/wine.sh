# Wine: the environment of a call, prefixes and their servers, registration. Sourced, never run.
#
# A prefix is a clone of the template that set-up made. It remembers in PREFIX/.mendwork
#   template    the template it came from
#   Mendwork32, Mendwork64, MendworkKit32, MendworkKit64  empty files with the time stamps of the registered libraries

WineLoader=/usr/lib/wine/wine64
WineServer=/usr/lib/wine/wineserver64

# The Nth (from 0) of the processors this process may use, modulo their number.
# usage: pick_cpu N -> Cpu
pick_cpu() {
  local Key List Range Cpus=()
  while read -r Key List; do
    [[ $Key != Cpus_allowed_list: ]] || break
  done </proc/self/status
  for Range in ${List//,/ }; do
    for ((Cpu = ${Range%-*}; Cpu <= ${Range#*-}; ++Cpu)); do Cpus+=("$Cpu"); done
  done
  Cpu=${Cpus[$1 % ${#Cpus[@]}]}
}

# Sets the environment of all later calls. A prefix and its server stay on one processor: a round trip
# between a program and a server on another one costs ten times as much. The 64-bit build takes the second
# processor, so that both builds can be tested side by side.
# usage: wine_env PREFIX
wine_env() {
  local Origin=${Wine32-}
  [[ ! -e $1/.mendwork/template ]] || {
    read -r Origin <"$1/.mendwork/template"
    Origin=${Origin%/*}/wine32
  }
  export WINEPREFIX=$1 WINEDLLPATH=$Origin WINEDEBUG=${WINEDEBUG:--all}
  # With the C locale, file names outside ASCII cannot be made.
  export LC_ALL=C.UTF-8
  # A crash must end the program instead of waiting in the debugger; no menu entries in the user's home.
  export WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe,winemenubuilder.exe="
  unset DISPLAY
  case $1 in
    */win64*/prefix | */torture/1/prefix) pick_cpu 1 ;;
    *) pick_cpu 0 ;;
  esac
}

# Runs a Windows program in the prefix of wine_env, without the caller's locks, with what OwnEnvironment adds.
# usage: wine_do PROGRAM [ARG...]
OwnEnvironment=()
wine_do() { env "${OwnEnvironment[@]}" taskset -c "$Cpu" "$WineLoader" "$@" 5>&- 9>&-; }

# Starts a server for wine_env's prefix, unless it has one, that goes after 30 idle seconds or with wine_stop.
# Otherwise each program would start the prefix's services anew, and sometimes meet a server on its way out. The
# services live as long as the server, so a program that has no output for them to hold open starts them.
# The desktop goes with the last window and takes half a second to start with the next: for whoever starts hundreds of
# programs and ends the server himself, KeepDesktop in the environment keeps a window open.
wine_keep() {
  taskset -c "$Cpu" "$WineServer" -p30 >/dev/null 2>&1 </dev/null 5>&- 9>&- || return 0 # 2: one runs already
  wine_do cmd /c exit >/dev/null 2>&1 </dev/null
  [[ -z ${KeepDesktop-} ]] || wine_do notepad >/dev/null 2>&1 </dev/null &
}

# Ends the server of wine_env's prefix and all that runs there, and waits until it is gone.
wine_stop() {
  "$WineServer" -k || true # fails when no server runs
  "$WineServer" -w
}

# Clones the template into PREFIX unless it is there; one that came from another template (another Wine) is
# made anew. Files are hard links, but not those that the server writes in place.
# usage: ensure_prefix PREFIX
ensure_prefix() {
  local Origin='' File
  [[ ! -e $1/.mendwork/template ]] || read -r Origin <"$1/.mendwork/template"
  [[ $Origin != "$Template" ]] || return 0
  remove_prefix "$1"
  mkdir -p "${1%/*}"
  cp -al "$Template" "$1.new" 2>/dev/null || {
    rm -rf "$1.new" # the cache lies on another file system
    cp -a "$Template" "$1.new"
  }
  for File in system.reg user.reg userdef.reg .update-timestamp; do
    cp --remove-destination -p "$Template/$File" "$1.new/$File"
  done
  mkdir -p "$1.new/.mendwork"
  echo "$Template" >"$1.new/.mendwork/template"
  mv "$1.new" "$1"
}

# usage: remove_prefix PREFIX
remove_prefix() {
  [[ ! -d $1 ]] || (wine_env "$1" && wine_stop)
  rm -rf "$1" "$1.new"
}

# The folder of Windows' own programs for 32 or 64 bits.
# usage: system_folder BITS -> SystemFolder
system_folder() {
  case $1 in
    32) SystemFolder='C:\windows\syswow64' ;;
    64) SystemFolder='C:\windows\system32' ;;
  esac
}

# The type libraries, by the names of their modules, as src/server/Mendwork.idl and src/kit/MendworkKit.idl have them.
declare -A TypeLibraries=(
  [Mendwork]='{D9F421A7-4AF7-47C5-9254-15A3A874CD14}\2.0'
  [MendworkKit]='{2481E6AF-4FE8-4AC1-AF1D-F7ACB7A365CA}\1.0'
)

# The mark of a registered library.
# usage: mark_of PREFIX BITS DLL -> Name, Mark
mark_of() {
  Name=${3##*/}
  Name=${Name%.dll}
  Mark=$1/.mendwork/$Name$2
}

# usage: is_registered PREFIX BITS DLL
is_registered() {
  local Name Mark
  mark_of "$@"
  [[ -e $Mark && -e $3 && ! $Mark -nt $3 && ! $Mark -ot $3 ]]
}

# Whether DLL is registered, and the kit that stands beside it, when there is one.
# usage: are_registered PREFIX BITS DLL
are_registered() {
  local Kit=${3%/*}/MendworkKit.dll
  is_registered "$@" && { [[ ! -e $Kit ]] || is_registered "$1" "$2" "$Kit"; }
}

# Registers DLL in the prefix of wine_env, unless that very build of it is registered.
# usage: ensure_registered BITS DLL
ensure_registered() {
  local Name Mark
  mark_of "$WINEPREFIX" "$@"
  ! is_registered "$WINEPREFIX" "$1" "$2" || return 0
  [[ -e $2 ]] || die "There is no ${2#"$Root/"} to register."
  system_folder "$1"
  windows_path "$2"
  quietly "$WINEPREFIX/.mendwork/regsvr32.log" wine_do "$SystemFolder\\regsvr32.exe" "$WindowsPath" ||
    die "regsvr32 could not register ${2#"$Root/"}."
  # Wine's marshaller looks for a type library under language 0 only, where LoadRegTypeLib is documented to try the
  # neutral languages and finds ours: without this key no call crosses an apartment or a process.
  quietly "$WINEPREFIX/.mendwork/regsvr32.log" wine_do "$SystemFolder\\reg.exe" add \
    "HKCR\\TypeLib\\${TypeLibraries[$Name]}\\0\\win$1" /ve /d "$WindowsPath" /f ||
    die "The type library of ${2#"$Root/"} could not be registered for Wine's marshaller."
  touch -r "$2" "$Mark"
}

# A prefix ready for programs of BITS bits, with DLL and the kit beside it registered and a server running; the
# environment is set. Several callers may come at once.
# usage: open_prefix PREFIX BITS DLL
open_prefix() {
  mkdir -p "${1%/*}"
  hold_lock "$1.lock" "another program that prepares ${1#"$Root/"}"
  ensure_prefix "$1"
  wine_env "$1"
  wine_keep
  ensure_registered "$2" "$3"
  [[ ! -e ${3%/*}/MendworkKit.dll ]] || ensure_registered "$2" "${3%/*}/MendworkKit.dll"
  let_go
}

# Runs a program or a script with the given bitness in the prefix of wine_env. PROGRAM is a file, one of
# Windows' own programs, or anything else that Windows finds by its name.
# usage: run_program BITS PROGRAM [ARG...]
run_program() {
  local Program=$2 Own
  system_folder "$1"
  Own=${Program,,}
  Own=${Own%.exe}.exe
  shift 2
  if [[ -f $Program ]]; then
    windows_path "$Program"
    case ${Program,,} in
      *.vbs | *.vbe | *.js | *.jse | *.wsf) wine_do "$SystemFolder\\cscript.exe" //nologo "$WindowsPath" "$@" ;;
      *) wine_do "$WindowsPath" "$@" ;;
    esac
  elif [[ -f $WINEPREFIX/drive_c/windows/${SystemFolder##*\\}/$Own ]]; then
    wine_do "$SystemFolder\\$Own" "$@"
  else
    wine_do "$Program" "$@"
  fi
}
