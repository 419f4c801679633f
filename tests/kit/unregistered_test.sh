#!/bin/bash
# The example without registration, in a prefix where nothing was ever registered: through the manifests and through
# the kit's function, an update that is undone and one that stays. usage: unregistered_test.sh BUILD_DIR BITS

source "$(dirname "${BASH_SOURCE[0]}")/../../tools/common.sh"
for Part in setup wine; do source "$Root/tools/$Part.sh"; done

BuildDir=$1 Bits=$2 Prefix=$1/unregistered/prefix
ensure_setup
remove_prefix "$Prefix"
ensure_prefix "$Prefix"
wine_env "$Prefix"
wine_keep
trap wine_stop EXIT
Drive=$Prefix/drive_c
mkdir -p "$Drive"/{Orvane,Package/sub,Updater,Plain}
cp "$BuildDir"/Mendwork{,Kit}.dll "$BuildDir"/Orvane.*.manifest "$Drive/Updater"
cp "$BuildDir/examples/mendwork_unregistered_example.exe" "$Drive/Updater/manifest.exe"
cp "$BuildDir/examples/mendwork_plain_example.exe" "$Drive/Plain/plain.exe"
echo new >"$Drive/Package/old.txt"
echo more >"$Drive/Package/sub/more.txt"
system_folder "$Bits"
wine_do "$SystemFolder\\reg.exe" add 'HKCU\Software\Orvane\Core' /ve /d 'C:\Orvane' /f >/dev/null

# usage: expect STATUS TEXT PROGRAM [ARG...]: ends with the status, and what is printed has the text
expect() {
  local Status=0 Printed
  Printed=$(timeout 100 "$WineLoader" "${@:3}" 2>&1 </dev/null) || Status=$?
  echo "$Status: $Printed"
  [[ $Status == "$1" && $Printed == *"$2"* ]] || die "$3 should end with $1 and print \"$2\"."
}

# The application's files and folders, with their contents.
tree() { (cd "$Drive/App" && find . -type d -print -o -type f -print -exec cat {} +) | LC_ALL=C sort; }

expect 1 0x80040154 'C:\Plain\plain.exe' 'C:\Package' 'C:\App' old.txt
for Way in 'C:\Updater\manifest.exe' 'C:\Plain\plain.exe /kit C:\Updater\MendworkKit.dll'; do
  read -r -a Words <<<"${Way//\\/\\\\}"
  rm -rf "$Drive/App" "$Drive/Orvane/Updates"
  mkdir "$Drive/App"
  echo old >"$Drive/App/old.txt"
  Before=$(tree)
  expect 2 'Its changes are undone.' "${Words[@]}" 'C:\Package' 'C:\App' old.txt 'sub\more.txt' absent.txt
  [[ $(tree) == "$Before" ]] || die "The application is not as it was: $(tree)"
  grep -aq "KitChanges.*Rollback" "$Drive/Orvane/Updates/Log/update.log" ||
    die "No line tells that the kit's entry was undone."
  expect 0 Updated. "${Words[@]}" 'C:\Package' 'C:\App' old.txt 'sub\more.txt'
  [[ $(cat "$Drive/App/old.txt" "$Drive/App/sub/more.txt") == $'new\nmore' ]] || die "The files are not the new ones."
done
wine_stop
Ids=$(grep -o 'sid="{[^}]*}\|iid="{[^}]*}\|tlbid="{[^}]*}' "$BuildDir"/Orvane.*.manifest -h | grep -o '{.*' | sort -u)
(($(wc -l <<<"$Ids") == 30)) || die "The manifests name other than 14 classes, 14 interfaces and 2 libraries."
! grep -aiF -e "$Ids" -e '\\Mendwork' "$Prefix"/{system,user,userdef}.reg || die "Something is registered."
echo 'Both ways work, and nothing is registered.'
