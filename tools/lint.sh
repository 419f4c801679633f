# What is asked of src beyond the compiler: the order of its rooms, headers by themselves, clang-tidy. Sourced, never
# run.

# Each room of src and the rooms that it may include besides itself. Services are reached through COM.
declare -A RoomsBelow=(
  [base]=''
  [formats]='base'
  [server]='base formats'
  [services]='base formats server'
  [retry]='base formats server'
  [rollback]='base formats server retry'
  [changes]='base formats server retry rollback'
  [installer]='base formats server retry rollback'
  [mendctl]='base formats server kit'
  [kit]='base formats server'
)

# Every include of a file of src, each as "FILE INCLUDED", both named from src.
# usage: find_includes -> Includes
find_includes() {
  local Include='^[[:space:]]*#[[:space:]]*include[[:space:]]*'
  mapfile -t Includes < <(cd "$Root/src" && grep -rE "$Include(\"|<($(tr ' ' '|' <<<"${!RoomsBelow[*]}"))/)" -- * |
    sed -E 's,^([^:]+):[^"<]*["<]([^">]+)[">].*,\1 \2,')
  ((${#Includes[@]})) || die "No file of src includes another."
}

# An include that leads up, or aside.
check_order() {
  local Line File Included Room Bad=0
  for Line in "${Includes[@]}"; do
    read -r File Included <<<"$Line"
    Room=${File%%/*}
    [[ -v RoomsBelow[$Room] ]] || die "src/$Room has no place in the order of rooms: give it one in tools/lint.sh."
    [[ " $Room ${RoomsBelow[$Room]} " == *" ${Included%%/*} "* ]] || { echo "src/$File includes $Included" && Bad=1; }
  done
  ((Bad == 0)) || die "These includes are against the order of rooms; docs/layout.md tells it."
}

# Headers that include each other.
check_circles() {
  local Circle
  Circle=$(printf '%s\n' "${Includes[@]}" | sed -n '/\.h [^ ]*\.h$/p' | tsort 2>&1 >/dev/null) ||
    die "Headers of src include each other: $(sed -n '2,$s/^tsort: //p' <<<"$Circle" | paste -sd ' ')"
}

# usage: side_by_side COMMAND... < LIST-OF-FILES; runs the command for each file
side_by_side() { xargs -P "$(nproc)" -d '\n' -n 1 "$@"; }

# The compiler with all options of the library, as the win32 build has them.
# usage: library_compiler -> Compiler
library_compiler() {
  read -r -a Compiler < <(sed -n 's,^ *"command": "\(.* -DMendwork_EXPORTS .*\) -o .*,\1,p' \
    "$Root/build/win32/compile_commands.json")
  ((${#Compiler[@]})) || die "The win32 build does not tell how the library is compiled."
}

# Each header alone, with nothing included before it. Those of the console need two packages, too.
check_headers() {
  library_compiler
  find "$Root/src" -name '*.h' | sort |
    side_by_side "${Compiler[@]}" -isystem "$Root/build/win32/packages" -fsyntax-only -x c++ /dev/null -include ||
    die "A header of src does not include what it needs."
}

# clang finds the headers of Windows by itself, not those of the C++ library of this very compiler.
# usage: library_headers -> Folders, as arguments of clang-tidy
library_headers() {
  mapfile -t Folders < <("${Compiler[0]}" -E -x c++ -v /dev/null 2>&1 | sed -n 's,^ \(/.*/c++.*\),--extra-arg=-isystem\1,p')
}

# The findings of clang-tidy; one in a header is told once, whoever includes it.
# usage: tidy FILE...
tidy() {
  local Log=$Root/build/lint.log Status=0
  library_compiler
  library_headers
  printf '%s\n' "$@" | side_by_side clang-tidy --quiet -p "$Root/build/win32" "${Folders[@]}" >"$Log" 2>&1 || Status=1
  awk '/^[0-9]+ warnings? (generated|treated as errors?)/ { next }
    /: (warning|error): / { Known = Seen[$0]++ }
    !Known' "$Log" | sed "s,$Root/,,"
  return "$Status"
}

command_lint() {
  local Files=()
  ensure_setup --64-will-do
  ensure_only_packages clang-tidy
  find_includes
  check_order
  check_circles
  build_quietly win32 mendwork_type_library mendwork_kit_type_library
  cd "$Root"
  if (($#)); then Files=("$@"); else
    check_headers
    # What only the host compiles is not shown to it: .clang-tidy looks with the eyes of the 32-bit build.
    mapfile -t Files < <(find "$Root/src" -name '*.cpp' ! -name 'host_*' | sort)
  fi
  tidy "${Files[@]}" || die "clang-tidy finds what is to be mended (all of its output: build/lint.log)."
}
