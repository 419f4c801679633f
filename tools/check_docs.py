#!/usr/bin/env python3
"""Holds the documentation against what it describes: the pages of docs/api against the interface definitions, quotes
against the files that they are from, links against what is there.

A page of docs/api is named after its class. A heading of the second level names methods ("## Get" or "## CopyFile,
CopyFileLogged"); the tables below it list their parameters in the order of the interface, as "| `Name` | in text | ... |".
Where the methods of one heading differ, a line "**Name**" stands before the table of each. Each method is called in an
example below its heading.

A line "From [FILE](LINK):" before a code block says that the block stands in that file, line by line.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DEFINITIONS, CLASSES = ["server/Mendwork.idl", "kit/MendworkKit.idl"], 14
TYPES = {"BSTR": "text", "long": "long", "unsigned long": "unsigned", "VARIANT_BOOL": "Boolean", "GUID": "GUID",
         "void*": "pointer", "void**": "pointer"}
FENCED = re.compile(r"^```.*?^```$", re.M | re.S)
problems = []


def fail(where, what):
    problems.append(f"{where.relative_to(ROOT)}: {what}")


def read_interfaces():
    """Of each class its methods with their parameters: {"UFile": {"CopyFile": [("SourceFileName", "in text"), ...]}}."""
    text = re.sub(r"//.*", "", "".join((ROOT / "src" / name).read_text() for name in DEFINITIONS))
    own = {}
    for name, base, body in re.findall(r"interface (\w+) : (\w+) \{(.*?)\};", text, re.S):
        own[name] = dict(own.get(base, {}))
        for method, parameters in re.findall(r"HRESULT (\w+)\((.*?)\);", body, re.S):
            own[name][method] = [read_parameter(one) for one in re.findall(r"\[[^]]*\][^,\[]+", parameters)]
    return {name[1:]: methods for name, methods in own.items()}


def read_parameter(text):
    parts = re.fullmatch(r"\[(.*?)\]\s*([\w ]+?)\s*(\**)\s*(\w+)\s*", text)
    if not parts:
        sys.exit(f"check_docs: the parameter is not understood: {text}")
    attributes, kind, stars, name = parts.groups()
    if "out" in attributes and kind != "void":
        stars = stars[:-1]  # where the result goes
    if kind + stars not in TYPES:
        sys.exit(f"check_docs: the pages have no word for the type of the parameter: {text}")
    way = "result" if "retval" in attributes else attributes
    return name, f"{way} {TYPES[kind + stars]}"


def shown(method, parameters):
    return f"{method}({', '.join(f'{name}: {kind}' for name, kind in parameters)})"


def sections_of(page):
    """The names of each heading of the second level, and what stands below it."""
    parts = re.split(r"^## (.+)$", page.read_text(), flags=re.M)
    return [([name.strip() for name in names.split(",")], body) for names, body in zip(parts[1::2], parts[2::2])]


def described_parameters(body, method):
    own = re.search(rf"^\*\*{method}\*\*$(.*?)(?=^\*\*\w+\*\*$|^- |^```|\Z)", body, re.M | re.S)
    return re.findall(r"^\| `(\w+)` \| ((?:in|out|result) \w+) \|", own.group(1) if own else body, re.M)


def check_page(page, methods):
    described = set()
    for names, body in sections_of(page):
        examples = "".join(FENCED.findall(body))
        for name in names:
            if name not in methods:
                fail(page, f"there is no method {name}")
                continue
            if name in described:
                fail(page, f"{name} is described twice")
            described.add(name)
            if (found := described_parameters(body, name)) != methods[name]:
                fail(page, f"{shown(name, found)} is {shown(name, methods[name])} in the interface")
            if not re.search(rf"(\.|->){name}\b", examples):
                fail(page, f"{name} has no example")
    for name in methods.keys() - described:
        fail(page, f"{name} is missing")


def check_reference():
    folder, interfaces = ROOT / "docs/api", read_interfaces()
    if len(interfaces) != CLASSES or not all(interfaces.values()):
        sys.exit("check_docs: the interface definition is not understood")
    pages = {page.stem: page for page in folder.glob("*.md") if page.stem != "README"}
    for name in interfaces.keys() ^ pages.keys():
        fail(folder / f"{name}.md", "is missing" if name in interfaces else "there is no such class")
    for name in interfaces.keys() & pages.keys():
        check_page(pages[name], interfaces[name])


def check_quotes(page):
    for link, quote in re.findall(r"^From \[[^]]+\]\(([^)]+)\):\n\n```\w*\n(.*?)^```$", page.read_text(), re.M | re.S):
        source = page.parent / link
        if source.is_file() and quote not in source.read_text():
            fail(page, f"what is quoted from {link} does not stand there: {quote.splitlines()[0]}")


def anchors_of(page):
    headings = re.findall(r"^#+ (.+)$", FENCED.sub("", page.read_text()), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def check_links(page):
    for link in re.findall(r"\]\(([^)\s]+)\)", FENCED.sub("", page.read_text())):
        if re.match(r"\w+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = page.parent / path if path else page
        if not target.exists():
            fail(page, f"the link {link} leads nowhere")
        elif anchor and anchor not in anchors_of(target):
            fail(page, f"the link {link} leads to no heading")


check_reference()
for page in [*ROOT.glob("*.md"), *ROOT.glob("docs/**/*.md"), *ROOT.glob("examples/**/*.md")]:
    check_quotes(page)
    check_links(page)
if problems:
    sys.exit("\n".join(sorted(problems)))
