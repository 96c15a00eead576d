#!/usr/bin/env python3
"""Fails when an installed shared library exports a symbol that is not part of its public interface.

    check_exported_symbols.py LIBRARY HEADER_DIR:MACRO [HEADER_DIR:MACRO …]

The public interface is what the installed headers mark with the export macro: classes and
functions, each with the namespace it is declared in. An exported C++ symbol passes when its
qualified name, read from the outside in, runs through namespaces that hold such declarations
until it reaches one of them (so members, nested types and statics of an exported class pass).
Everything else fails, above all anything in an `internal` or anonymous namespace and private
helpers in the global namespace. Two short allow-lists remain: templates of the C++ library
instantiated over public types (std, __gnu_cxx), and the linker's own symbols.
"""
import pathlib
import re
import subprocess
import sys

TOOLCHAIN_SCOPES = {"std", "__gnu_cxx"}
LINKER_SYMBOLS = {"_edata", "_end", "__bss_start", "_init", "_fini"}
SPECIAL_PREFIX = re.compile(r"^(typeinfo name for|typeinfo for|vtable for|VTT for|construction vtable for|"
                            r"guard variable for|(non-)?virtual thunk to|covariant return thunk to|"
                            r"TLS (init|wrapper) function for|reference temporary #\d+ for) ")
OPERATOR_WITH_BRACKETS = re.compile(r"operator(<=>|<<=|>>=|<<|>>|<=|>=|->\*|->|<|>|\(\)|\[\])")


def public_declarations(header_dir, macro):
    """The qualified names of what the headers under header_dir mark with `macro`."""
    token = re.compile(r"\bnamespace\s+([A-Za-z_][\w:]*)\s*\{|(\{)|(\})|"
                       rf"\b(?:class|struct)\s+{macro}\s+(\w+)|\b{macro}\b[^;{{}}]*?(~?\w+)\s*\(")
    names = set()
    for header in pathlib.Path(header_dir).rglob("*.h"):
        text = header.read_text()
        text = re.sub(r"//[^\n]*|/\*.*?\*/|\"(\\.|[^\"\\])*\"|'(\\.|[^'\\\n])*'", " ", text, flags=re.S)
        text = re.sub(r"^\s*#[^\n]*", " ", text, flags=re.M)
        scopes = []  # one entry per open brace: the namespace it opens, or None
        for match in token.finditer(text):
            namespace, opening, closing, cls, function = match.groups()
            if namespace:
                scopes.append(namespace)
            elif opening:
                scopes.append(None)
            elif closing and scopes:
                scopes.pop()
            elif None not in scopes:  # declarations inside a class or function body don't count
                names.add("::".join(scopes + [cls or function]))
    return names


def qualified_name(symbol):
    """The components of a demangled symbol's name, without template arguments, return type or
    parameters: 'QString* std::f<int>(int)' → ['std', 'f']."""
    while SPECIAL_PREFIX.match(symbol):
        symbol = SPECIAL_PREFIX.sub("", symbol, count=1)
    symbol = OPERATOR_WITH_BRACKETS.sub("operator@", symbol)
    depth, start, name = 0, 0, None
    for i, ch in enumerate(symbol):
        if ch == "(" and depth == 0:
            name = symbol[start:i]
            break
        if ch in "<({[":
            depth += 1
        elif ch in ">)}]":
            depth -= 1
        elif ch == " " and depth == 0:
            start = i + 1
    name = symbol[start:] if name is None else name
    depth, plain = 0, ""
    for ch in name:
        depth += ch == "<"
        plain += ch if depth == 0 else ""
        depth -= ch == ">"
    return [part for part in plain.split("::")]


def is_public(symbol, declared, namespaces):
    if "internal::" in symbol or "(anonymous namespace)" in symbol:
        return False
    parts = qualified_name(symbol)
    if parts[0] in TOOLCHAIN_SCOPES:
        return True
    for length in range(1, len(parts) + 1):
        prefix = "::".join(parts[:length])
        if prefix in declared:
            return True
        if prefix not in namespaces:
            return False
    return False


def main(library, *header_specs):
    declared = set()
    for spec in header_specs:
        header_dir, macro = spec.rsplit(":", 1)
        declared |= public_declarations(header_dir, macro)
    namespaces = {"::".join(name.split("::")[:n]) for name in declared for n in range(1, name.count("::") + 1)}
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True,
                             text=True).stdout
    raw = [line.split()[-1] for line in listing.splitlines() if line.strip()]
    demangled = subprocess.run(["c++filt"], input="\n".join(raw), check=True, capture_output=True,
                               text=True).stdout.splitlines()
    private = [shown for mangled, shown in zip(raw, demangled)
               if not (mangled in LINKER_SYMBOLS if not mangled.startswith("_Z")
                       else is_public(shown, declared, namespaces))]
    for symbol in private:
        print(f"private symbol exported by {pathlib.Path(library).name}: {symbol}")
    print(f"{library}: {len(raw)} exported symbols, {len(private)} private")
    return 1 if private else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
