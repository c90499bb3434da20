"""Checks that the shared library exports what its public headers declare and nothing else.

Usage: check_exports.py LIBRARY HEADER...

The names declared with MUSKEIP_API in the headers (classes, functions, variables) form the
allowed set. Every dynamic symbol the library defines must belong to one of them: a function or
variable of that name, a member of such a class, or the class's vtable and typeinfo. Every
declared name must be exported, so a missing MUSKEIP_API is caught too."""
import re
import subprocess
import sys


def declared_names(headers):
    names = set()
    for header in headers:
        text = open(header, encoding="utf-8").read()
        text = re.sub(r"(?m)^\s*#.*$", "", text)  # the macro's own definition
        for match in re.finditer(r"\b(?:class|struct) MUSKEIP_API (\w+)", text):
            names.add(match.group(1))
        for match in re.finditer(r"MUSKEIP_API (?!class|struct)([^;{(]*?)(\w+)\s*(?:\(|\[|;)", text):
            names.add(match.group(2))
    return names


def root_name(symbol):
    """The class or free name a demangled symbol belongs to."""
    symbol = re.sub(r"^(vtable|typeinfo name|typeinfo) for ", "", symbol)
    symbol = symbol.split("(")[0]
    symbol = re.sub(r"<[^<>]*>", "", symbol)  # template arguments of member templates
    symbol = symbol.split()[-1] if " " in symbol else symbol  # a template's return type
    return symbol.split("::")[0]


def main():
    library, headers = sys.argv[1], sys.argv[2:]
    names = declared_names(headers)
    listing = subprocess.run(["nm", "-DC", "--defined-only", library], check=True,
                             capture_output=True, text=True).stdout
    symbols = [line.split(" ", 2)[2] for line in listing.splitlines() if line.count(" ") >= 2]
    stray = sorted(s for s in symbols if root_name(s) not in names)
    exported_roots = {root_name(s) for s in symbols}
    # Classes with only inline members and plain structs export nothing of their own.
    missing = sorted(n for n in names - exported_roots if n not in ("FlicFileProbe",
                                                                      "FlicSettingName",
                                                                      "FlicSettingTable"))
    print("%d exported symbols of %d declared names" % (len(symbols), len(names)))
    for symbol in stray:
        print("exported but not declared in a public header:", symbol)
    for name in missing:
        print("declared with MUSKEIP_API but not exported:", name)
    return 1 if stray or missing else 0


if __name__ == "__main__":
    sys.exit(main())
