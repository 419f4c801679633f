# Set-up: Debian's packages, the 32-bit half of Wine, and the template that every Wine prefix is cloned
# from. The last two are cached per Wine version, made in a temporary folder beside their place and
# renamed into it, so that whatever is there is whole. Sourced, never run.

Packages=(wine wine64 libwine-dev g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix mingw-w64-tools
  cmake ninja-build googletest util-linux g++ make clang clang-format libclang-rt-14-dev python3
  zlib1g-dev libz-mingw-w64-dev libcli11-dev nlohmann-json3-dev python3-jsonschema nsis
  chromium chromium-driver python3-selenium locales)
PicturePackages=(xvfb imagemagick aha)

# To be raised when the content of the cache changes its shape.
CacheFormat=1
CacheHome=${XDG_CACHE_HOME:-$HOME/.cache}/mendwork
SetupLog=$CacheHome/setup.log

# Names the cache of the installed Wine; fails when there is none.
find_cache() {
  WineVersion=$(dpkg-query -W -f '${Version}' libwine:amd64 2>/dev/null) || return 1
  Cache=$CacheHome/wine-${WineVersion//[:~]/-}-$CacheFormat
  Wine32=$Cache/wine32     # holds i386-windows, as WINEDLLPATH wants it
  Locales=$Cache/locales   # for tests under another code page, which Wine takes from the locale
  Template=$Cache/prefix   # for both bitnesses
  Template64=$Cache/prefix64 # when the 32-bit half cannot be had
}

# usage: missing_packages NAME... -> Missing
missing_packages() {
  local Installed Name
  Installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null) || true
  Missing=()
  for Name; do
    [[ $'\n'$Installed$'\n' == *$'\n'"installed $Name"$'\n'* ]] || Missing+=("$Name")
  done
}

# Why apt failed, in one sentence.
explain_apt() {
  local Unknown
  Unknown=$(sed -n 's/^E: Unable to locate package //p; s/^E: Package .\(.*\). has no installation candidate$/\1/p' \
    "$SetupLog" | sort -u | paste -sd ' ')
  if [[ -n $Unknown ]]; then
    die "This machine's package sources do not have: $Unknown."
  elif grep -qE 'Failed to fetch|Could not (resolve|connect)|Temporary failure|Connection (failed|timed out)' "$SetupLog"; then
    die "The package mirror could not be reached; repeat the command when the network is back."
  fi
  die "$1 failed (all of its output: $SetupLog)."
}

# usage: ensure_packages NAME...
ensure_packages() {
  missing_packages "$@"
  ((${#Missing[@]})) || return 0
  local Install=(apt-get install -y --no-install-recommends "${Missing[@]}")
  ((EUID == 0)) || die "Packages are missing, an administrator must run: apt-get update && ${Install[*]}"
  local Apt=(env DEBIAN_FRONTEND=noninteractive)
  say "Installing packages: ${Missing[*]}"
  # An installation that was cut off leaves packages unpacked but not configured.
  quietly "$SetupLog" "${Apt[@]}" dpkg --configure -a || die "dpkg could not finish an earlier installation."
  # Without the error mode, apt-get update succeeds when nothing could be fetched.
  quietly "$SetupLog" "${Apt[@]}" apt-get update -o APT::Update::Error-Mode=any || explain_apt "apt-get update"
  quietly "$SetupLog" "${Apt[@]}" "${Install[@]}" -o DPkg::Lock::Timeout=600 || explain_apt "apt-get install"
  missing_packages "$@"
  ((${#Missing[@]} == 0)) || die "Packages are still missing after their installation: ${Missing[*]}."
}

# For commands that need packages and nothing else, or more than most.
# usage: ensure_only_packages NAME...
ensure_only_packages() {
  missing_packages "$@"
  ((${#Missing[@]})) || return 0
  mkdir -p "$CacheHome"
  hold_lock "$CacheHome/lock" "another set-up to finish"
  ensure_packages "$@"
  let_go
}

# The address, code name and component of Debian's main suite in this machine's own package sources; apt knows
# them only when it has package lists.
# usage: main_suite [APT-OPTION...] -> MainSuite
main_suite() {
  local Suites
  Suites=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT) $(ORIGIN)' "$@") || return
  MainSuite=$(grep -m 1 -E '^[^ ]+ [a-z]+ main Debian$' <<<"$Suites") || return
  MainSuite=${MainSuite% Debian}
}

# Writes the one-line source list of the main suite for i386 into FILE; when apt has no package lists, it gets
# private ones.
# usage: write_i386_source FILE PRIVATE-LISTS
write_i386_source() {
  local Options=(-o Dir::State::Lists="$2" -o APT::Sandbox::User=root)
  main_suite || {
    apt-get update "${Options[@]}" || return
    main_suite "${Options[@]}" || return
  }
  echo "deb [arch=i386] $MainSuite" >"$1"
}

# Removes the debug sections from Windows programs: less than half of their size is left, which counts because
# every prefix has them. What is no program stays as it is.
# usage: strip_programs ARCHITECTURE DIR
strip_programs() {
  find "$2" -type f ! -name '*.nls' -print0 | xargs -0 -n 50 -P 2 "$1-w64-mingw32-strip" --strip-debug || true
}

# Unpacks the 32-bit half into DIR/i386-windows. The folders of apt are private ones in DIR: neither apt's
# nor dpkg's idea of this machine's architectures changes.
# usage: fetch_wine32 DIR
fetch_wine32() {
  local Dir=$1
  mkdir -p "$Dir"/apt/{lists/partial,own-lists/partial,cache/archives/partial}
  write_i386_source "$Dir/apt/sources.list" "$Dir/apt/own-lists" || return
  local Options=(-o Dir::State::Lists="$Dir/apt/lists" -o Dir::Cache="$Dir/apt/cache"
    -o Dir::Etc::SourceList="$Dir/apt/sources.list" -o Dir::Etc::SourceParts=- -o Dir::State::status=/dev/null
    -o APT::Architecture=i386 -o APT::Architectures=i386 -o APT::Sandbox::User=root
    -o APT::Update::Error-Mode=any)
  apt-get "${Options[@]}" update || return
  (cd "$Dir/apt" && apt-get "${Options[@]}" download "libwine:i386=$WineVersion") || return
  dpkg-deb --fsys-tarfile "$Dir"/apt/libwine_*_i386.deb |
    tar -x -C "$Dir" --strip-components=5 ./usr/lib/i386-linux-gnu/wine/i386-windows || return
  rm -r "$Dir/apt"
  strip_programs i686 "$Dir/i386-windows"
  [[ -s $Dir/i386-windows/kernel32.dll ]]
}

# A Japanese locale of our own: the machine's list of locales stays as it is.
ensure_locales() {
  [[ ! -d $Locales ]] || return 0
  rm -rf "$Locales.new"
  mkdir -p "$Locales.new"
  quietly "$SetupLog" localedef -i ja_JP -f UTF-8 "$Locales.new/ja_JP.UTF-8" ||
    die "The locale for tests under code page 932 could not be made (all of the output: $SetupLog)."
  mv "$Locales.new" "$Locales"
}

ensure_wine32() {
  [[ ! -d $Wine32 ]] || return 0
  say "Fetching the 32-bit half of Wine $WineVersion (95 MB)"
  rm -rf "$Wine32.new"
  quietly "$SetupLog" fetch_wine32 "$Wine32.new" || return
  mv "$Wine32.new" "$Wine32"
}

# Makes a prefix from nothing: no display is needed afterwards, and nothing in it leads into the user's home.
# usage: make_template DIR
make_template() {
  local Link
  wine_env "$1"
  wine_do wineboot -i || return
  wine_do reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f || return
  wine_stop
  strip_programs x86_64 "$1/drive_c/windows/system32"
  find "$1/drive_c/users" -type l -print0 | while IFS= read -r -d '' Link; do
    rm "$Link" && mkdir "$Link"
  done
  [[ -s $1/system.reg && -s $1/user.reg && -s $1/userdef.reg ]]
}

# usage: ensure_template DIR
ensure_template() {
  [[ ! -d $1 ]] || return 0
  say "Making the Wine prefix that all others are cloned from"
  remove_prefix "$1.new" # an interrupted set-up may have left it, with a server
  mkdir -p "$1.new"
  quietly "$SetupLog" make_template "$1.new" || die "Wine could not make a prefix (all of its output: $SetupLog)."
  mv "$1.new" "$1"
}

# Everything the commands need; silent when it is there. Sets Template to the prefix to clone and Has32 to
# whether 32-bit programs run. Without the 32-bit half it fails, except when the caller can do without it.
# usage: ensure_setup [--64-will-do]
ensure_setup() {
  missing_packages "${Packages[@]}"
  if ((${#Missing[@]} == 0)) && find_cache && [[ -e $Cache/ready && -d $Locales ]]; then
    Has32=1
    return
  fi
  command -v apt-get >/dev/null || die "mend needs Debian 12: there is no apt on this machine."
  [[ $(dpkg --print-architecture) == amd64 ]] || die "mend needs an amd64 machine."
  mkdir -p "$CacheHome"
  trap 'die "Set-up was interrupted; run the command again and it goes on from here."' INT TERM
  hold_lock "$CacheHome/lock" "another set-up to finish"
  ensure_packages "${Packages[@]}"
  find_cache || die "The package libwine is not installed although wine is."
  mkdir -p "$Cache"
  ensure_locales
  if ensure_wine32; then
    Has32=1
    ensure_template "$Template"
    rm -rf "$Template64"
    touch "$Cache/ready"
  else
    [[ ${1-} == --64-will-do ]] || die "The 32-bit half of Wine could not be fetched (all of the output: $SetupLog); repeat the command when the network is back."
    Has32=0
    Template=$Template64
    ensure_template "$Template"
  fi
  let_go
  trap - INT TERM
}
