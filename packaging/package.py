#!/usr/bin/env python3
"""Completes a folder that the build has installed (./mend dist), and packs it.

usage: package.py FOLDER

Adds to FOLDER, dist/win32 or another, what no build makes: the handed-out README, the documentation, the interface
definitions, the licences of what is linked in, the version, and SHA256SUMS over all of it. Marks the parameters in the
headers as [in] and [out], as the interface definitions have them. Writes mendwork-VERSION-FOLDER.zip beside the folder: its bytes depend
on the files alone, on no time, owner or order of theirs.
"""

import hashlib
import pathlib
import re
import shutil
import subprocess
import sys
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
DEFINITIONS = ["src/server/Mendwork.idl", "src/kit/MendworkKit.idl"]
# The libraries that are linked in, by the package of this system whose copyright file has their licence.
LINKED_ON_WINDOWS = {"gcc-runtime": "gcc-mingw-w64-base", "mingw-w64": "mingw-w64-common", "zlib": "libz-mingw-w64"}
LINKED_ELSEWHERE = {"gcc-runtime": "gcc-12-base", "zlib": "zlib1g"}
LINKED_INTO_CONSOLE = {"CLI11": "libcli11-dev", "nlohmann-json": "nlohmann-json3-dev"}
# The first moment that a ZIP file can name.
TIME = (1980, 1, 1, 0, 0, 0)


def parameters_of(definition):
    """The attributes of each parameter: {("CopyFile", "CopyMode"): "in"}. Fails when one name has two meanings."""
    text = re.sub(r"//.*", "", definition.read_text())
    found = {}
    for method, parameters in re.findall(r"HRESULT (\w+)\((.*?)\);", text, re.S):
        for attributes, name in re.findall(r"\[([^]]*)\][^,\[]*?(\w+)\s*(?=,|$)", parameters):
            if found.setdefault((method, name), attributes) != attributes:
                sys.exit(f"package: {method} has two parameters {name} that differ")
    return found


def mark_parameters(header, parameters):
    """Puts /* [in] */ and the like before the parameters of the methods, in the C++ and in the C part."""
    marked = set()

    def mark(match):
        method, lines = re.sub(r"^(get|put)_", "", match.group(2)), []
        for line in match.group(3).split(",\n"):
            name = (line.split() or [""])[-1].lstrip("*")  # a method may have none
            if (method, name) in parameters:
                marked.add((method, name))
                line = re.sub(r"^\s*", rf"\g<0>/* [{parameters[method, name]}] */ ", line)
            lines.append(line)
        return match.group(1) + ",\n".join(lines) + match.group(4)

    text = re.sub(r"(STDMETHODCALLTYPE (\w+)\(\n)(.*?)(\) = 0;)", mark, header.read_text(), flags=re.S)
    text = re.sub(r"(\(STDMETHODCALLTYPE \*(\w+)\)\(\n)(.*?)(\);)", mark, text, flags=re.S)
    if unmarked := parameters.keys() - marked:
        sys.exit(f"package: {header.name} lacks the parameters {sorted(unmarked)}")
    header.write_text(text)


def add_developer_files(folder):
    for definition in map(ROOT.joinpath, DEFINITIONS):
        shutil.copyfile(definition, folder / "include" / definition.name)
        mark_parameters(folder / "include" / f"{definition.stem}_TLB.h", parameters_of(definition))


def add_licences(folder, linked):
    (folder / "licences").mkdir()
    for name, package in linked.items():
        shutil.copyfile(f"/usr/share/doc/{package}/copyright", folder / "licences" / f"{name}.txt")


def version():
    number = re.search(r"project\(Mendwork VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text()).group(1)
    state = subprocess.run(["git", "-C", ROOT, "describe", "--always", "--dirty", "--exclude=*"], capture_output=True, text=True)
    return number, f"{number}\nsources {state.stdout.strip() or 'unknown'}\n"


def files_of(folder):
    return sorted(path for path in folder.rglob("*") if path.is_file())


def require_links(folder):
    """Fails when a page links to what is not handed out."""
    for page in folder.rglob("*.md"):
        for link in re.findall(r"\]\(([^)\s#:]+)(?:#[^)]*)?\)", page.read_text()):
            if not (page.parent / link).exists():
                sys.exit(f"package: {page.relative_to(folder)} links to {link}, which is not handed out")


def add_sums(folder):
    sums = folder / "SHA256SUMS"
    sums.write_text("".join(f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.relative_to(folder).as_posix()}\n"
                            for path in files_of(folder)))


def is_program(path):
    return path.suffix in (".dll", ".exe") or path.name == "mendctl"


def pack(folder, package):
    archive = package.with_name(package.name + ".zip")
    with zipfile.ZipFile(archive, "w") as packed:
        for path in files_of(folder):
            entry = zipfile.ZipInfo(f"{package.name}/{path.relative_to(folder).as_posix()}", TIME)
            entry.create_system = 3  # so that the modes count, wherever it is unpacked
            entry.external_attr = (0o100755 if is_program(path) else 0o100644) << 16
            packed.writestr(entry, path.read_bytes(), zipfile.ZIP_DEFLATED, 9)
    return archive


def main(folder):
    number, text = version()
    on_windows = (folder / "Mendwork.dll").exists()
    if on_windows:
        add_developer_files(folder)
        shutil.copyfile(ROOT / "packaging/README.md", folder / "README.md")
    shutil.copytree(ROOT / "docs", folder / "docs")
    add_licences(folder, (LINKED_ON_WINDOWS if on_windows else LINKED_ELSEWHERE) | LINKED_INTO_CONSOLE)
    shutil.copyfile(ROOT / "CHANGELOG.md", folder / "CHANGELOG.md")
    (folder / "VERSION").write_text(text)
    if on_windows:
        require_links(folder)
    add_sums(folder)
    archive = pack(folder, folder.with_name(f"mendwork-{number}-{folder.name}"))
    print(f"{hashlib.sha256(archive.read_bytes()).hexdigest()}  {archive.name}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: package.py FOLDER")
    main(pathlib.Path(sys.argv[1]).resolve())
