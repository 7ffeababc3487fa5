#!/usr/bin/env python3
"""Error table generator.

Reads errors/errors.table (its header describes the format) and writes:

  <platform-dir>/result_codes.h   the result-code macros, included by wtypes.h
  <platform-dir>/result_names.h   HResultName, HResultMessage, HResultKnown
  <component-dir>/veltrane_errors.h
                                  the string table (enum class Text), the code
                                  groups, the enum groups and the error kinds
  <component-dir>/<header>        a code group with header=<header>: an SDK's
                                  codes, whose type only the code that talks to
                                  that SDK knows

Malformed input ends the program with "file:line: error: text" and exit code 1,
and nothing is written. Only the Python standard library is used.
"""

import argparse
import os
import re
import sys

sys.dont_write_bytecode = True  # nothing written beside the sources
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from cxxgen import narrow, u16, write_if_changed  # noqa: E402

KINDS = ("result", "win32", "text", "code", "enum", "kind")
OPTIONS = {
    "result": set(),
    "win32": set(),
    "text": set(),
    "code": {"type", "constants", "lookup", "texts", "include", "header"},
    "enum": {"type", "lookup", "include"},
    "kind": set(),
}
REQUIRED = {"code": {"type", "lookup"}, "enum": {"type", "lookup"}}
SINGLE = ("text", "kind")  # at most one group of these kinds
RESERVED_HEADERS = ("result_codes.h", "result_names.h", "veltrane_errors.h")

IDENT = r"[A-Za-z_][A-Za-z0-9_]*"
TOKEN_RE = re.compile(r'\s*(?:(?P<string>"(?:[^"\\\n]|\\.)*")|(?P<number>0[xX][0-9A-Fa-f]+|[0-9]+)(?![A-Za-z0-9_])'
                      r'|(?P<ident>' + IDENT + r')|(?P<bad>\S))')


class TableError(Exception):
    def __init__(self, line, text):
        super().__init__(text)
        self.line = line
        self.text = text


class Row:
    def __init__(self, line, name, number, text, ref):
        self.line = line
        self.name = name
        self.number = number
        self.text = text
        self.ref = ref


class Group:
    def __init__(self, line, name, kind, options):
        self.line = line
        self.name = name
        self.kind = kind
        self.options = options
        self.rows = []


def unescape(literal, line):
    out = []
    i = 1
    while i < len(literal) - 1:
        c = literal[i]
        if c == "\\":
            n = literal[i + 1]
            if n == "n":
                out.append("\n")
            elif n in "\"\\":
                out.append(n)
            else:
                raise TableError(line, "unknown escape '\\%s'" % n)
            i += 2
        else:
            out.append(c)
            i += 1
    return "".join(out)


def tokens_of(text, line):
    out = []
    pos = 0
    text = text.rstrip()
    while pos < len(text):
        m = TOKEN_RE.match(text, pos)
        if m.group("bad"):
            if m.group("bad") == '"':
                raise TableError(line, "unterminated text")
            raise TableError(line, "unexpected character %r" % m.group("bad"))
        kind = m.lastgroup
        out.append((kind, m.group(kind)))
        pos = m.end()
    return out


def strip_comment(text):
    # A "#" outside a quoted text starts a comment.
    quoted = False
    i = 0
    while i < len(text):
        c = text[i]
        if c == "\\" and quoted:
            i += 2
            continue
        if c == '"':
            quoted = not quoted
        elif c == "#" and not quoted:
            return text[:i]
        i += 1
    return text


def parse_group(words, line):
    if words[0] != "group":
        raise TableError(line, "a group line starts with 'group'; rows are indented")
    if len(words) < 3 or not all(re.fullmatch(IDENT, w) for w in words[1:3]):
        raise TableError(line, "a group line reads: group NAME KIND [option=value ...]")
    name, kind = words[1], words[2]
    if kind not in KINDS:
        raise TableError(line, "unknown kind of group '%s' (one of %s)" % (kind, ", ".join(KINDS)))
    return name, kind


def parse_options(raw, kind, line):
    options = {}
    for item in raw:
        m = re.fullmatch(r"([a-z]+)=(\S+)", item)
        if not m:
            raise TableError(line, "an option reads name=value, not '%s'" % item)
        key, value = m.groups()
        if key not in OPTIONS[kind]:
            raise TableError(line, "option '%s' does not apply to a group of kind %s" % (key, kind))
        if key in options:
            raise TableError(line, "option '%s' given twice" % key)
        options[key] = value
    missing = REQUIRED.get(kind, set()) - set(options)
    if missing:
        raise TableError(line, "a group of kind %s needs the option %s" % (kind, ", ".join(sorted(missing))))
    if kind == "code":
        options.setdefault("constants", "macro")
        if options["constants"] not in ("macro", "none"):
            raise TableError(line, "constants= is macro or none, not '%s'" % options["constants"])
        header = options.get("header")
        if header is not None and (not re.fullmatch(r"[a-z][a-z0-9_]*\.h", header) or header in RESERVED_HEADERS):
            raise TableError(line, "header= names a header of its own (lower case, .h), not '%s'" % header)
    return options


def parse_row(group, tokens, line):
    kinds = [k for k, _v in tokens]
    values = [v for _k, v in tokens]
    if kinds[0] != "ident":
        raise TableError(line, "a row starts with its identifier")
    name = values[0]
    rest = list(zip(kinds[1:], values[1:]))
    number = text = ref = None
    if rest and rest[0][0] == "number":
        number = int(rest.pop(0)[1], 0)
    if rest and rest[0][0] == "string":
        text = unescape(rest.pop(0)[1], line)
    if rest and rest[0][0] == "ident":
        ref = rest.pop(0)[1]
    if rest:
        raise TableError(line, "unexpected '%s' in a row of %s" % (rest[0][1], group.name))
    k = group.kind
    if k != "enum" and number is None:
        raise TableError(line, "%s: a row of kind %s needs a number" % (name, k))
    if k == "enum" and number is not None:
        raise TableError(line, "%s: the values of an enum group come from its declaration" % name)
    if k == "text" and text is None:
        raise TableError(line, "%s: a row of kind %s needs a text" % (name, k))
    if k == "win32" and (text is None) == (ref is None):
        raise TableError(line, "%s: a row of kind win32 reads IDENTIFIER NUMBER \"TEXT\" or IDENTIFIER NUMBER "
                         "RESULT-NAME (the result row that is its HRESULT)" % name)
    if k == "kind" and (ref is None or text is not None):
        raise TableError(line, "%s: a row of kind kind reads IDENTIFIER NUMBER TEXT-NAME" % name)
    if k not in ("kind", "win32") and ref is not None:
        raise TableError(line, "%s: only a row of kind kind names a text" % name)
    if k == "result" and not 0 <= number <= 0xFFFFFFFF:
        raise TableError(line, "%s: 0x%X is not a 32-bit result code" % (name, number))
    if k == "text" and not 0 < number < 65536:
        raise TableError(line, "%s: a text code lies between 1 and 65535" % name)
    return Row(line, name, number, text, ref)


def parse(text):
    groups = []
    group = None
    for line, raw in enumerate(text.split("\n"), 1):
        body = strip_comment(raw)
        if not body.strip():
            continue
        if not raw[0].isspace():
            words = body.split()
            name, kind = parse_group(words, line)
            group = Group(line, name, kind, parse_options(words[3:], kind, line))
            groups.append(group)
            continue
        tokens = tokens_of(body, line)
        if group is None:
            raise TableError(line, "a row before the first group")
        group.rows.append(parse_row(group, tokens, line))
    return check(groups)


def check(groups):
    names = {}
    for g in groups:
        if g.name in names:
            raise TableError(g.line, "group '%s' already stands on line %d" % (g.name, names[g.name]))
        names[g.name] = g.line
        if not g.rows:
            raise TableError(g.line, "group '%s' has no rows" % g.name)
        seen_names, seen_numbers = {}, {}
        for r in g.rows:
            if r.name in seen_names:
                raise TableError(r.line, "%s already stands on line %d" % (r.name, seen_names[r.name]))
            seen_names[r.name] = r.line
            if r.number is not None:
                if r.number in seen_numbers:
                    raise TableError(r.line, "%s: the number %d already stands on line %d"
                                     % (r.name, r.number, seen_numbers[r.number]))
                seen_numbers[r.number] = r.line
        if g.kind == "code" and "texts" in g.options and any(r.text is None for r in g.rows):
            bare = next(r for r in g.rows if r.text is None)
            raise TableError(bare.line, "%s: the group has texts=, so every row needs a text" % bare.name)
        if g.kind == "code" and "texts" not in g.options and any(r.text is not None for r in g.rows):
            texted = next(r for r in g.rows if r.text is not None)
            raise TableError(texted.line, "%s: a text needs the option texts= on the group" % texted.name)
    headers = {}
    for g in groups:
        header = g.options.get("header")
        if header in headers:
            raise TableError(g.line, "header %s is group %s's already" % (header, headers[header]))
        if header:
            headers[header] = g.name
    for kind in SINGLE:
        found = [g for g in groups if g.kind == kind]
        if len(found) > 1:
            raise TableError(found[1].line, "only one group of kind %s" % kind)
    for kind in ("result", "text"):
        if not any(g.kind == kind for g in groups):
            raise TableError(1, "the table needs a group of kind %s" % kind)
    texts = {r.name for g in groups if g.kind == "text" for r in g.rows}
    for g in groups:
        if g.kind == "kind":
            for r in g.rows:
                if r.ref not in texts:
                    raise TableError(r.line, "%s: '%s' is no text of the string table" % (r.name, r.ref))
    results = {}
    result_rows = {r.name: r for g in groups if g.kind == "result" for r in g.rows}
    for g in groups:
        for r in g.rows:
            if g.kind not in ("result", "win32"):
                continue
            if r.ref is not None:
                # A system error number whose HRESULT is a result row: a constant only.
                same = result_rows.get(r.ref)
                if same is None or same.number != hresult_from_win32(r.number):
                    raise TableError(r.line, "%s: HRESULT_FROM_WIN32(%d) is 0x%08X, not the result %s"
                                     % (r.name, r.number, hresult_from_win32(r.number), r.ref))
                continue
            code = r.number if g.kind == "result" else hresult_from_win32(r.number)
            if code in results:
                raise TableError(r.line, "%s: the result 0x%08X is %s already" % (r.name, code, results[code]))
            results[code] = r.name
    return groups


def hresult_from_win32(n):
    return n if n == 0 else ((n & 0xFFFF) | (7 << 16) | 0x80000000)


# --------------------------------------------------------------------------
# C++ rendering

BANNER = "// Generated by tools/errorgen.py from %s. Do not edit.\n"


def of_kind(groups, kind):
    return [g for g in groups if g.kind == kind]


def emit_result_codes(groups, source):
    o = [BANNER % source, "// The platform's result codes; wtypes.h includes this header.\n#pragma once\n\n"]
    for g in of_kind(groups, "result"):
        for r in g.rows:
            o.append("#define %s _HRESULT_TYPEDEF_(0x%08XL)\n" % (r.name, r.number))
    for g in of_kind(groups, "win32"):
        o.append("\n// System error numbers, as the registry functions return them.\n")
        for r in g.rows:
            o.append("#define %s %d\n" % (r.name, r.number))
    return "".join(o)


def emit_result_names(groups, source):
    o = [BANNER % source]
    o.append("// Names and texts of the platform's result codes, the texts as the platform's\n"
             "// message lookup gives them, without the trailing line end.\n")
    o.append("#pragma once\n\n#include <cstdio>\n#include <string>\n\n#include \"platform/wtypes.h\"\n\n")
    o.append("namespace veltrane::errors {\n\n")
    o.append("struct ResultRow {\n  uint32_t code;\n  const char16_t* name;\n  const char16_t* message;  // null: the platform has none\n};\n\n")
    o.append("inline constexpr ResultRow kResults[] = {\n")
    for g in groups:
        if g.kind == "result":
            for r in g.rows:
                o.append("    {0x%08X, %s, %s},\n" % (r.number, u16(r.name), u16(r.text)))
        elif g.kind == "win32":
            for r in (r for r in g.rows if r.ref is None):
                o.append("    {0x%08X, %s, %s},  // HRESULT_FROM_WIN32(%d)\n"
                         % (hresult_from_win32(r.number), u16(r.name), u16(r.text), r.number))
    o.append("};\n\n")
    o.append("inline const ResultRow* FindResult(HRESULT hr) {\n"
             "  for (const ResultRow& row : kResults)\n"
             "    if (row.code == static_cast<uint32_t>(hr)) return &row;\n"
             "  return nullptr;\n}\n\n")
    o.append("}  // namespace veltrane::errors\n\n")
    o.append("// True if the platform has a text for hr.\n"
             "inline bool HResultKnown(HRESULT hr) {\n"
             "  const veltrane::errors::ResultRow* row = veltrane::errors::FindResult(hr);\n"
             "  return row && row->message;\n}\n\n")
    o.append("// The platform's text for hr, or, for a code without one, the code in\n"
             "// hexadecimal (\"0x80040201\").\n"
             "inline std::u16string HResultMessage(HRESULT hr) {\n"
             "  const veltrane::errors::ResultRow* row = veltrane::errors::FindResult(hr);\n"
             "  if (row && row->message) return row->message;\n"
             "  char text[16];\n"
             "  std::snprintf(text, sizeof text, \"0x%08X\", static_cast<uint32_t>(hr));\n"
             "  return std::u16string(text, text + 10);\n}\n\n")
    o.append("// The constant's name (\"E_INVALIDARG\"), or an empty text.\n"
             "inline std::u16string HResultName(HRESULT hr) {\n"
             "  const veltrane::errors::ResultRow* row = veltrane::errors::FindResult(hr);\n"
             "  return row ? row->name : u\"\";\n}\n")
    return "".join(o)


def emit_component(groups, source):
    o = [BANNER % source]
    o.append("// The component's errors: the string table, the codes of the libraries it\n"
             "// talks to, the names of the error groups and the kinds of internal errors.\n")
    o.append("#pragma once\n\n#include <cstdint>\n#include <span>\n#include <string_view>\n\n"
             "#include \"platform/wtypes.h\"\n")
    includes = sorted({g.options["include"] for g in groups if "include" in g.options and "header" not in g.options})
    for inc in includes:
        o.append("#include \"%s\"\n" % inc)
    o.append("\n")

    text = of_kind(groups, "text")[0]
    first = min(r.number for r in text.rows)
    last = max(r.number for r in text.rows)
    o.append("// The codes of the string table; a code's result is 0x80040000 plus the code.\n")
    o.append("enum class %s : UINT {\n" % text.name)
    for r in text.rows:
        o.append("  %s = %d,\n" % (r.name, r.number))
    o.append("};\n\n")
    o.append("inline constexpr UINT kFirstStringCode = %d;\n" % first)
    o.append("inline constexpr UINT kLastStringCode = %d;\n\n" % last)
    o.append("// The result code that reports a text of the table.\n"
             "inline constexpr HRESULT StringCodeResult(UINT code) { return static_cast<HRESULT>(0x80040000u + code); }\n"
             "inline constexpr HRESULT TextResult(%s text) { return StringCodeResult(static_cast<UINT>(text)); }\n\n"
             % text.name)
    o.append("namespace veltrane::errors {\n\n")
    o.append("inline constexpr const char16_t* kStringTable[kLastStringCode - kFirstStringCode + 1] = {\n")
    by_code = {r.number: r for r in text.rows}
    for code in range(first, last + 1):
        r = by_code.get(code)
        o.append("    /* %d */ %s,\n" % (code, u16(r.text) if r else "nullptr"))
    o.append("};\n\n}  // namespace veltrane::errors\n\n")
    o.append("// The text of a code of the string table, or an empty view.\n"
             "inline constexpr std::u16string_view StringTableText(UINT code) {\n"
             "  if (code < kFirstStringCode || code > kLastStringCode) return {};\n"
             "  const char16_t* text = veltrane::errors::kStringTable[code - kFirstStringCode];\n"
             "  return text ? std::u16string_view(text) : std::u16string_view();\n}\n"
             "inline constexpr std::u16string_view StringTableText(%s text) {\n"
             "  return StringTableText(static_cast<UINT>(text));\n}\n\n" % text.name)

    o.append("namespace veltrane::errors {\n\n"
             "// A named code of a code group: number, name and text (null if none).\n"
             "template <class Number>\nstruct NamedCode {\n  Number number;\n  const char* name;\n  const char* text;\n};\n\n"
             "}  // namespace veltrane::errors\n\n")
    for g in of_kind(groups, "code"):
        if "header" not in g.options:
            emit_code_group(o, g)

    for g in of_kind(groups, "enum"):
        t = g.options["type"]
        emit_named_rows(o, g, t, [r.name for r in g.rows])
        o.append("// The name of a value of %s, or null.\n" % t)
        emit_lookup(o, g, g.options["lookup"], "long", "static_cast<long>(row.number) == code", "name")
        o.append("\n")

    for g in of_kind(groups, "kind"):
        o.append("namespace veltrane::errors {\n\n")
        o.append("// Kinds of internal errors (CXVeltrane::KIND).\n")
        o.append("enum %s : int32_t {\n" % g.name)
        for r in g.rows:
            o.append("  %s = %d,\n" % (r.name, r.number))
        o.append("};\n\n")
        o.append("struct %sRow {\n  const char16_t* name;\n  %s clientText;\n};\n\n" % (g.name, text.name))
        o.append("// By kind, with the text of the string table a client gets for it.\n")
        o.append("inline constexpr %sRow k%ss[] = {\n" % (g.name, g.name))
        rows = sorted(g.rows, key=lambda r: r.number)
        if [r.number for r in rows] != list(range(len(rows))):
            raise TableError(g.line, "the kinds are numbered 0, 1, 2, ... without gaps")
        for r in rows:
            o.append("    {%s, %s::%s},\n" % (u16(r.name), text.name, r.ref))
        o.append("};\n\n")
        last_kind = rows[-1].name
        o.append("// The row of a kind; a number outside the table reads as %s.\n" % last_kind)
        o.append("inline constexpr const %sRow& %sOf(int32_t kind) {\n" % (g.name, g.name))
        o.append("  return kind < 0 || kind > %s ? k%ss[%s] : k%ss[kind];\n}\n\n" % (last_kind, g.name, last_kind, g.name))
        o.append("}  // namespace veltrane::errors\n")
    return "".join(o)


def emit_code_group(o, g):
    t = g.options["type"]
    if g.options["constants"] == "macro":
        width = max(len(r.name) for r in g.rows)
        for r in g.rows:
            o.append("#define %s %d\n" % (r.name.ljust(width), r.number))
        o.append("\n")
    else:
        o.append("// The declaration's values are the table's.\n")
        for r in g.rows:
            o.append("static_assert(static_cast<long long>(%s) == %d, \"%s is %d in the error table\");\n"
                     % (r.name, r.number, r.name, r.number))
        o.append("\n")
    numbers = [str(r.number) if g.options["constants"] == "macro" else r.name for r in g.rows]
    emit_named_rows(o, g, t, numbers)
    o.append("// The constant's name of a code of %s, or null.\n" % g.name)
    emit_lookup(o, g, g.options["lookup"], t, "row.number == code", "name")
    if "texts" in g.options:
        o.append("// The text of a code of %s, or null.\n" % g.name)
        emit_lookup(o, g, g.options["texts"], t, "row.number == code", "text")
    o.append("\n")


def emit_group_header(g, source):
    o = [BANNER % source]
    o.append("// The codes of %s, in a header of their own: only the code that talks to\n"
             "// that library knows their type.\n" % g.name)
    o.append("#pragma once\n\n#include \"veltrane_errors.h\"\n")
    if "include" in g.options:
        o.append("#include \"%s\"\n" % g.options["include"])
    o.append("\n")
    emit_code_group(o, g)
    return "".join(o)


def emit_named_rows(o, g, number_type, numbers):
    row = "veltrane::errors::NamedCode<%s>" % number_type
    o.append("namespace veltrane::errors {\n\ninline constexpr %s k%ss[] = {\n" % (row, g.name))
    for r, number in zip(g.rows, numbers):
        o.append("    {%s, %s, %s},\n" % (number, narrow(r.name), narrow(r.text)))
    o.append("};\n\n}  // namespace veltrane::errors\n\n")
    o.append("// The rows of %s, in the order of the table.\n" % g.name)
    o.append("inline constexpr std::span<const %s> %ss() { return veltrane::errors::k%ss; }\n" % (row, g.name, g.name))


def emit_lookup(o, g, function, argument_type, match, field):
    o.append("inline constexpr const char* %s(%s code) {\n" % (function, argument_type))
    o.append("  for (const auto& row : veltrane::errors::k%ss)\n    if (%s) return row.%s;\n  return nullptr;\n}\n"
             % (g.name, match, field))


def main(argv):
    ap = argparse.ArgumentParser(description="Generates the error constants and lookups from the error table.")
    ap.add_argument("table", help="the error table")
    ap.add_argument("--platform-dir", help="directory of result_codes.h and result_names.h")
    ap.add_argument("--component-dir", help="directory of veltrane_errors.h")
    ap.add_argument("--check", action="store_true", help="only check the table")
    args = ap.parse_args(argv)
    try:
        with open(args.table, "r", encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        sys.stderr.write("%s: error: cannot read: %s\n" % (args.table, e.strerror))
        return 1
    source = os.path.basename(args.table)
    try:
        groups = parse(text)
        outputs = {
            "result_codes.h": emit_result_codes(groups, source),
            "result_names.h": emit_result_names(groups, source),
            "veltrane_errors.h": emit_component(groups, source),
        }
        headers = {g.options["header"]: emit_group_header(g, source)
                   for g in of_kind(groups, "code") if "header" in g.options}
    except TableError as e:
        sys.stderr.write("%s:%d: error: %s\n" % (args.table, e.line, e.text))
        return 1
    if args.check:
        return 0
    if not args.platform_dir or not args.component_dir:
        ap.error("--platform-dir and --component-dir are required unless --check is given")
    for d in (args.platform_dir, args.component_dir):
        os.makedirs(d, exist_ok=True)
    write_if_changed(os.path.join(args.platform_dir, "result_codes.h"), outputs["result_codes.h"])
    write_if_changed(os.path.join(args.platform_dir, "result_names.h"), outputs["result_names.h"])
    write_if_changed(os.path.join(args.component_dir, "veltrane_errors.h"), outputs["veltrane_errors.h"])
    for name, text in headers.items():
        write_if_changed(os.path.join(args.component_dir, name), text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
