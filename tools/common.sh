# What every part of mend needs: where things are, how it speaks, how it fails. Sourced, never run.

set -euo pipefail

Root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# One line of progress, on stderr: stdout belongs to the programs that are run.
say() { printf 'mend: %s\n' "$*" >&2; }

# The one way to fail: one sentence, status 1.
die() {
  say "$*"
  exit 1
}

# Runs a long step quietly, in a subshell: its output goes to LOG, and only its end is shown, when it fails.
# usage: quietly LOG COMMAND...
quietly() {
  local Log=$1 Status=0
  shift
  ("$@") >"$Log" 2>&1 </dev/null || Status=$?
  ((Status == 0)) || tail -n 30 "$Log" >&2
  return "$Status"
}

# Two locks, on descriptors 9 and 5. What may outlive the caller, such as a Wine server, is started without
# them (see tools/wine.sh), or it would keep them.

# Waits for the lock on a descriptor.
# usage: take_lock DESCRIPTOR WHAT-WE-WAIT-FOR
take_lock() {
  flock --nonblock "$1" && return
  say "Waiting for $2."
  flock "$1"
}

# For a short preparation, until let_go.
# usage: hold_lock FILE WHAT-WE-WAIT-FOR
hold_lock() {
  exec 9>"$1"
  take_lock 9 "$2"
}

let_go() { exec 9>&-; }

# For the whole of a command that ends its Wine servers: it runs once at a time.
# usage: claim COMMAND
claim() {
  mkdir -p "$Root/build"
  exec 5>"$Root/build/$1.lock"
  take_lock 5 "another ./mend $1"
}

# A path as Windows programs see it: every prefix has Z: for the root folder.
# usage: windows_path PATH -> WindowsPath
windows_path() {
  local Path
  Path=$(realpath --no-symlinks "$1")
  WindowsPath="Z:${Path//\//\\}"
}
