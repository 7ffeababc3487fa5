#!/usr/bin/env python3
"""Type library generator.

Reads the library description (a MIDL subset, see docs/typelib.md) and writes:

  <header-dir>/veltrane_tlb.h         enums, identifiers, interface declarations
  <header-dir>/veltrane_events.h      CProxy_<Event> firing helpers
  <header-dir>/veltrane_decl.h        declarations for implementers: the members
                                      of each interface (VELTRANE_DECL_<ITF>) and
                                      the bases of each coclass's class
  <source-dir>/veltrane_tlb_guids.cpp identifier definitions
  <source-dir>/veltrane_tlb_desc.cpp  type descriptions and dispatch tables
  <source-dir>/veltrane_tlb_thunks.h  declarations of the late-bound entries
  <source-dir>/veltrane_tlb_thunks_N.cpp  late-bound entries, split in parts

With --object-map FILE it writes the module's object map instead: one entry
per creatable coclass that the build implements (--creatable NAME=HEADER, the
class C<NAME> declared in HEADER); every other class of the library stays out
of the map.

Malformed input ends the program with "file:line: error: text" and exit code 1.
Only the Python standard library is used.
"""

import argparse
import os
import re
import sys

sys.dont_write_bytecode = True  # nothing written beside the sources
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from cxxgen import u16, write_if_changed  # noqa: E402

VT = {
    "VT_EMPTY": 0, "VT_I2": 2, "VT_I4": 3, "VT_R4": 4, "VT_R8": 5, "VT_CY": 6, "VT_DATE": 7,
    "VT_BSTR": 8, "VT_DISPATCH": 9, "VT_ERROR": 10, "VT_BOOL": 11, "VT_VARIANT": 12,
    "VT_UNKNOWN": 13, "VT_UI1": 17, "VT_UI2": 18, "VT_UI4": 19, "VT_INT": 22, "VT_VOID": 24,
    "VT_HRESULT": 25, "VT_ARRAY": 0x2000,
}

# IDL name -> (C++ type, VARTYPE name, VARIANT accessor macro)
BASE_TYPES = {
    "BSTR": ("BSTR", "VT_BSTR", "V_BSTR"),
    "VARIANT": ("VARIANT", "VT_VARIANT", None),
    "VARIANT_BOOL": ("VARIANT_BOOL", "VT_BOOL", "V_BOOL"),
    "long": ("LONG", "VT_I4", "V_I4"),
    "LONG": ("LONG", "VT_I4", "V_I4"),
    "short": ("SHORT", "VT_I2", "V_I2"),
    "SHORT": ("SHORT", "VT_I2", "V_I2"),
    "unsigned char": ("BYTE", "VT_UI1", "V_UI1"),
    "BYTE": ("BYTE", "VT_UI1", "V_UI1"),
    "unsigned short": ("USHORT", "VT_UI2", "V_UI2"),
    "unsigned long": ("ULONG", "VT_UI4", "V_UI4"),
    "double": ("DOUBLE", "VT_R8", "V_R8"),
    "float": ("FLOAT", "VT_R4", "V_R4"),
    "DATE": ("DATE", "VT_DATE", "V_DATE"),
    "CURRENCY": ("CY", "VT_CY", "V_CY"),
    "CY": ("CY", "VT_CY", "V_CY"),
    "int": ("INT", "VT_INT", "V_INT"),
    "HRESULT": ("HRESULT", "VT_HRESULT", None),
    "void": ("void", "VT_VOID", None),
}

KNOWN_ATTRIBUTES = {
    "library": {"uuid", "version", "helpstring", "appid", "lcid"},
    "interface": {"object", "uuid", "dual", "oleautomation", "nonextensible", "helpstring", "hidden",
                  "pointer_default", "restricted"},
    "dispinterface": {"uuid", "helpstring", "hidden", "nonextensible"},
    "coclass": {"uuid", "helpstring", "noncreatable", "appobject", "control", "hidden", "nonactivatable",
                "progid", "vi_progid", "clsid_progid", "clsid_vi_progid"},
    "enum": {"uuid", "helpstring", "hidden", "v1_enum"},
    "enumerator": {"helpstring"},
    "member": {"id", "propget", "propput", "propputref", "helpstring", "hidden", "restricted"},
    "param": {"in", "out", "retval", "optional", "defaultvalue"},
    "impl": {"default", "source"},
}


class IdlError(Exception):
    def __init__(self, line, text):
        super().__init__(text)
        self.line = line
        self.text = text


# --------------------------------------------------------------------------
# Lexer

TOKEN_RE = re.compile(r"""
    (?P<ws>[ \t\r]+)
  | (?P<nl>\n)
  | (?P<linecomment>//[^\n]*)
  | (?P<blockcomment>/\*.*?\*/)
  | (?P<guid>[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}(?![0-9A-Za-z_]))
  | (?P<number>0[xX][0-9A-Fa-f]+|[0-9]+(?:\.[0-9]+)?)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<ident>[A-Za-z_][A-Za-z0-9_]*)
  | (?P<punct>[\[\](){},;:*=\-])
""", re.VERBOSE | re.DOTALL)


class Token:
    __slots__ = ("kind", "value", "line")

    def __init__(self, kind, value, line):
        self.kind = kind
        self.value = value
        self.line = line

    def __repr__(self):
        return "%s %r" % (self.kind, self.value)


def tokenize(text):
    tokens = []
    pos = 0
    line = 1
    while pos < len(text):
        m = TOKEN_RE.match(text, pos)
        if not m:
            if text.startswith("/*", pos):
                raise IdlError(line, "unterminated comment")
            if text[pos] == '"':
                raise IdlError(line, "unterminated string")
            raise IdlError(line, "unexpected character %r" % text[pos])
        kind = m.lastgroup
        value = m.group(kind)
        if kind in ("guid", "number", "string", "ident", "punct"):
            tokens.append(Token(kind, value, line))
        line += value.count("\n")
        pos = m.end()
    # The end of the file stands on its last line.
    tokens.append(Token("eof", "", max(1, line - 1) if text.endswith("\n") else line))
    return tokens


# --------------------------------------------------------------------------
# Model

class Attr:
    def __init__(self, name, args, line):
        self.name = name
        self.args = args  # list of tokens
        self.line = line


class TypeRef:
    """A type as written: a name with pointer levels, or SAFEARRAY(elem)."""

    def __init__(self, name, pointers, line, element=None):
        self.name = name
        self.pointers = pointers
        self.line = line
        self.element = element  # TypeRef for SAFEARRAY
        # resolved later
        self.kind = None  # "base", "enum", "interface", "array"
        self.target = None  # Enum or Interface
        self.level = 0  # pointer levels beyond the value itself

    def spelled(self):
        if self.name == "SAFEARRAY":
            return "SAFEARRAY(%s)%s" % (self.element.spelled(), "*" * self.pointers)
        return self.name + "*" * self.pointers


class Param:
    def __init__(self, name, type_, attrs, line):
        self.name = name
        self.type = type_
        self.attrs = attrs
        self.line = line
        self.is_in = False
        self.is_out = False
        self.retval = False
        self.optional = False
        self.default = None  # ("int", n) | ("real", x) | ("string", s)


class Member:
    def __init__(self, name, ret, params, attrs, line):
        self.name = name
        self.ret = ret
        self.params = params
        self.attrs = attrs
        self.line = line
        self.dispid = None
        self.invkind = "INVOKE_FUNC"
        self.hidden = False
        self.restricted = False
        self.doc = ""
        self.slot = -1
        self.owner = None

    @property
    def cxx_name(self):
        if self.invkind == "INVOKE_PROPERTYGET":
            return "get_" + self.name
        if self.invkind == "INVOKE_PROPERTYPUT":
            return "put_" + self.name
        if self.invkind == "INVOKE_PROPERTYPUTREF":
            return "putref_" + self.name
        return self.name


class Interface:
    def __init__(self, name, base, attrs, line, dispinterface=False):
        self.name = name
        self.base_name = base
        self.attrs = attrs
        self.line = line
        self.dispinterface = dispinterface
        self.members = []
        self.base = None
        self.uuid = None
        self.doc = ""
        self.dual = False
        self.flags = []
        self.index = -1

    def chain(self):
        """Interfaces from the root of the library's chain down to this one."""
        out = []
        itf = self
        while itf is not None:
            out.append(itf)
            itf = itf.base
        return list(reversed(out))

    def derives_from_dispatch(self):
        return self.dispinterface or self.base_name == "IDispatch" or (self.base is not None and
                                                                       self.base.derives_from_dispatch())


class Enum:
    def __init__(self, name, attrs, line):
        self.name = name
        self.attrs = attrs
        self.line = line
        self.values = []  # (name, value, doc, line)
        self.doc = ""
        self.uuid = None
        self.hidden = False
        self.index = -1


class CoClass:
    def __init__(self, name, attrs, line):
        self.name = name
        self.attrs = attrs
        self.line = line
        self.impls = []  # (Interface name, flags list, line, is_dispinterface)
        self.uuid = None
        self.doc = ""
        self.index = -1
        self.creatable = True
        self.activatable = True
        self.control = False
        self.appobject = False
        self.hidden = False
        self.progid = None
        self.vi_progid = None
        self.clsid_progid = None
        self.clsid_vi_progid = None


class Library:
    def __init__(self):
        self.name = None
        self.uuid = None
        self.appid = None
        self.version = (1, 0)
        self.doc = ""
        self.lcid = 0
        self.line = 0
        self.enums = []
        self.interfaces = []
        self.coclasses = []
        self.forward = {}  # name -> line
        self.order = []  # all types in order of appearance


# --------------------------------------------------------------------------
# Parser

class Parser:
    def __init__(self, tokens):
        self.tokens = tokens
        self.pos = 0
        self.lib = Library()

    def peek(self, offset=0):
        return self.tokens[min(self.pos + offset, len(self.tokens) - 1)]

    def next(self):
        tok = self.tokens[self.pos]
        if tok.kind != "eof":
            self.pos += 1
        return tok

    def describe(self, tok):
        return "end of file" if tok.kind == "eof" else "'%s'" % tok.value

    def expect(self, value, what=None):
        tok = self.next()
        if tok.value != value or tok.kind == "string":
            raise IdlError(tok.line, "expected '%s'%s, found %s" % (value, " " + what if what else "",
                                                                    self.describe(tok)))
        return tok

    def accept(self, value):
        tok = self.peek()
        if tok.value == value and tok.kind != "string":
            self.pos += 1
            return True
        return False

    def ident(self, what):
        tok = self.next()
        if tok.kind != "ident":
            raise IdlError(tok.line, "expected %s, found %s" % (what, self.describe(tok)))
        return tok

    # [a, b(x), c("s")]
    def attributes(self):
        attrs = []
        if not self.accept("["):
            return attrs
        while True:
            name = self.ident("attribute name")
            args = []
            if self.accept("("):
                depth = 1
                while True:
                    tok = self.next()
                    if tok.kind == "eof":
                        raise IdlError(name.line, "unterminated argument list of attribute '%s'" % name.value)
                    if tok.value == "(" and tok.kind == "punct":
                        depth += 1
                    elif tok.value == ")" and tok.kind == "punct":
                        depth -= 1
                        if depth == 0:
                            break
                    args.append(tok)
            attrs.append(Attr(name.value, args, name.line))
            if self.accept("]"):
                return attrs
            tok = self.peek()
            if not self.accept(","):
                raise IdlError(tok.line, "expected ',' or ']' in attribute list, found %s" % self.describe(tok))

    def parse(self):
        while self.peek().kind != "eof":
            self.top_level()
        if self.lib.name is None:
            raise IdlError(self.peek().line, "no library block found")
        return self.lib

    def statement_import(self):
        tok = self.next()  # import / importlib
        if tok.value == "importlib":
            self.expect("(")
            s = self.next()
            if s.kind != "string":
                raise IdlError(s.line, "expected a file name in importlib")
            self.expect(")")
        else:
            s = self.next()
            if s.kind != "string":
                raise IdlError(s.line, "expected a file name after import")
            while self.accept(","):
                s = self.next()
                if s.kind != "string":
                    raise IdlError(s.line, "expected a file name after import")
        self.expect(";")

    def top_level(self):
        tok = self.peek()
        if tok.value in ("import", "importlib"):
            self.statement_import()
            return
        attrs_line = tok.line
        if tok.value == "typedef":
            self.typedef()
            return
        attrs = self.attributes()
        tok = self.peek()
        if tok.value == "library":
            if self.lib.name is not None:
                raise IdlError(tok.line, "a second library block")
            self.library(attrs)
        elif tok.value == "interface":
            self.interface(attrs)
        elif tok.value == "dispinterface":
            self.dispinterface(attrs)
        elif tok.value == "coclass":
            self.coclass(attrs)
        elif tok.value == "typedef":
            raise IdlError(attrs_line, "attributes of a typedef stand after the keyword typedef")
        else:
            raise IdlError(tok.line, "expected library, interface, dispinterface, coclass or typedef, found %s"
                           % self.describe(tok))

    def library(self, attrs):
        self.next()
        name = self.ident("library name")
        lib = self.lib
        lib.name = name.value
        lib.line = name.line
        lib.attrs = attrs
        self.expect("{", "after the library name")
        while not self.accept("}"):
            if self.peek().kind == "eof":
                raise IdlError(name.line, "library block is not closed")
            self.top_level()
        self.accept(";")

    def typedef(self):
        self.expect("typedef")
        attrs = self.attributes()
        kw = self.next()
        if kw.value != "enum":
            raise IdlError(kw.line, "only enumerations can be defined by typedef, found %s" % self.describe(kw))
        tag = None
        if self.peek().kind == "ident":
            tag = self.next()
        self.expect("{", "to open the enumeration")
        values = []
        current = -1
        while True:
            if self.accept("}"):
                break
            vattrs = self.attributes()
            vname = self.ident("enumerator name")
            if self.accept("="):
                current = self.constant_int(vname.line)
            else:
                current += 1
            doc = ""
            for a in vattrs:
                if a.name not in KNOWN_ATTRIBUTES["enumerator"]:
                    raise IdlError(a.line, "attribute '%s' is not allowed on an enumerator" % a.name)
                doc = self.string_arg(a)
            values.append((vname.value, current, doc, vname.line))
            if self.accept("}"):
                break
            tok = self.peek()
            if not self.accept(","):
                raise IdlError(tok.line, "expected ',' or '}' in enumeration, found %s" % self.describe(tok))
        name = self.ident("enumeration name after '}'")
        if tag is not None and tag.value != name.value:
            raise IdlError(name.line, "enumeration tag '%s' differs from its typedef name '%s'"
                           % (tag.value, name.value))
        self.expect(";", "after the enumeration")
        en = Enum(name.value, attrs, name.line)
        en.values = values
        self.lib.enums.append(en)
        self.lib.order.append(en)

    def constant_int(self, line):
        negative = self.accept("-")
        tok = self.next()
        if tok.kind != "number" or "." in tok.value:
            raise IdlError(tok.line, "expected an integer constant, found %s" % self.describe(tok))
        value = int(tok.value, 0)
        return -value if negative else value

    def type_ref(self):
        tok = self.next()
        if tok.kind != "ident":
            raise IdlError(tok.line, "expected a type, found %s" % self.describe(tok))
        name = tok.value
        element = None
        if name == "unsigned":
            nxt = self.ident("type after 'unsigned'")
            if nxt.value not in ("char", "short", "long"):
                raise IdlError(nxt.line, "unsupported type 'unsigned %s'" % nxt.value)
            name = "unsigned " + nxt.value
        elif name == "enum":
            name = self.ident("enumeration name").value
        elif name == "SAFEARRAY":
            self.expect("(", "after SAFEARRAY")
            element = self.type_ref()
            self.expect(")", "to close SAFEARRAY(")
        pointers = 0
        while self.accept("*"):
            pointers += 1
        return TypeRef(name, pointers, tok.line, element)

    def interface(self, attrs):
        kw = self.next()
        name = self.ident("interface name")
        if self.accept(";"):
            if attrs:
                raise IdlError(name.line, "a forward declaration takes no attributes")
            self.lib.forward.setdefault(name.value, name.line)
            return
        base = None
        if self.accept(":"):
            base = self.ident("base interface name").value
        else:
            raise IdlError(name.line, "interface '%s' names no base interface" % name.value)
        itf = Interface(name.value, base, attrs, name.line)
        self.expect("{", "to open the interface")
        self.members_until_close(itf, "interface", name)

    def dispinterface(self, attrs):
        self.next()
        name = self.ident("dispinterface name")
        if self.accept(";"):
            self.lib.forward.setdefault(name.value, name.line)
            return
        itf = Interface(name.value, "IDispatch", attrs, name.line, dispinterface=True)
        self.expect("{", "to open the dispinterface")
        self.expect("properties", "in a dispinterface")
        self.expect(":")
        if self.peek().value != "methods":
            raise IdlError(self.peek().line, "properties of a dispinterface are not supported; use methods")
        self.expect("methods")
        self.expect(":")
        self.members_until_close(itf, "dispinterface", name)

    def members_until_close(self, itf, kind, name):
        """Reads members up to the closing brace and enters the interface."""
        while not self.accept("}"):
            if self.peek().kind == "eof":
                raise IdlError(name.line, "%s '%s' is not closed" % (kind, name.value))
            itf.members.append(self.member())
        self.accept(";")
        self.lib.interfaces.append(itf)
        self.lib.order.append(itf)

    def member(self):
        attrs = self.attributes()
        ret = self.type_ref()
        name = self.ident("member name")
        self.expect("(", "after the member name")
        params = []
        if self.peek().value == "void" and self.peek(1).value == ")":
            self.next()
        if not self.accept(")"):
            while True:
                pattrs = self.attributes()
                ptype = self.type_ref()
                pname = self.ident("parameter name")
                params.append(Param(pname.value, ptype, pattrs, pname.line))
                if self.accept(")"):
                    break
                tok = self.peek()
                if not self.accept(","):
                    raise IdlError(tok.line, "expected ',' or ')' in parameter list, found %s" % self.describe(tok))
        self.expect(";", "after the member declaration")
        return Member(name.value, ret, params, attrs, name.line)

    def coclass(self, attrs):
        self.next()
        name = self.ident("coclass name")
        cc = CoClass(name.value, attrs, name.line)
        self.expect("{", "to open the coclass")
        while not self.accept("}"):
            if self.peek().kind == "eof":
                raise IdlError(name.line, "coclass '%s' is not closed" % name.value)
            iattrs = self.attributes()
            kw = self.next()
            if kw.value not in ("interface", "dispinterface"):
                raise IdlError(kw.line, "expected interface or dispinterface in coclass, found %s"
                               % self.describe(kw))
            iname = self.ident("interface name")
            self.expect(";", "after the implemented interface")
            flags = []
            for a in iattrs:
                if a.name not in KNOWN_ATTRIBUTES["impl"]:
                    raise IdlError(a.line, "attribute '%s' is not allowed on an implemented interface" % a.name)
                flags.append(a.name)
            cc.impls.append((iname.value, flags, iname.line, kw.value == "dispinterface"))
        self.accept(";")
        self.lib.coclasses.append(cc)
        self.lib.order.append(cc)

    @staticmethod
    def string_arg(attr):
        if len(attr.args) != 1 or attr.args[0].kind != "string":
            raise IdlError(attr.line, "attribute '%s' takes one string" % attr.name)
        return decode_string(attr.args[0].value, attr.line)


def decode_string(literal, line):
    body = literal[1:-1]
    out = []
    i = 0
    while i < len(body):
        c = body[i]
        if c == "\\":
            i += 1
            e = body[i]
            if e == "n":
                out.append("\n")
            elif e == "t":
                out.append("\t")
            elif e in "\\\"'":
                out.append(e)
            else:
                raise IdlError(line, "unsupported escape '\\%s' in string" % e)
        else:
            out.append(c)
        i += 1
    return "".join(out)


# --------------------------------------------------------------------------
# Checking and resolution

def attr_map(attrs, allowed, what):
    out = {}
    for a in attrs:
        if a.name not in allowed:
            raise IdlError(a.line, "attribute '%s' is not allowed on %s" % (a.name, what))
        if a.name in out:
            raise IdlError(a.line, "attribute '%s' is given twice" % a.name)
        out[a.name] = a
    return out


def guid_arg(attr):
    if len(attr.args) != 1 or attr.args[0].kind != "guid":
        raise IdlError(attr.line, "attribute '%s' takes a GUID such as 01234567-89AB-CDEF-0123-456789ABCDEF"
                       % attr.name)
    return attr.args[0].value.upper()


def flag_attr(amap, name):
    a = amap.get(name)
    if a is not None and a.args:
        raise IdlError(a.line, "attribute '%s' takes no argument" % name)
    return a is not None


def resolve(lib):
    names = {}

    def claim(name, line):
        if name in names:
            raise IdlError(line, "'%s' is defined twice (first on line %d)" % (name, names[name]))
        names[name] = line

    libattrs = attr_map(getattr(lib, "attrs", []), KNOWN_ATTRIBUTES["library"], "a library")
    if "uuid" not in libattrs:
        raise IdlError(lib.line, "library '%s' has no uuid" % lib.name)
    lib.uuid = guid_arg(libattrs["uuid"])
    if "appid" in libattrs:
        lib.appid = guid_arg(libattrs["appid"])
    if "helpstring" in libattrs:
        lib.doc = Parser.string_arg(libattrs["helpstring"])
    if "version" in libattrs:
        a = libattrs["version"]
        text = "".join(t.value for t in a.args)
        m = re.fullmatch(r"(\d+)(?:\.(\d+))?", text)
        if not m:
            raise IdlError(a.line, "version takes major.minor, found '%s'" % text)
        lib.version = (int(m.group(1)), int(m.group(2) or 0))
    if "lcid" in libattrs:
        a = libattrs["lcid"]
        if len(a.args) != 1 or a.args[0].kind != "number":
            raise IdlError(a.line, "lcid takes a number")
        lib.lcid = int(a.args[0].value, 0)

    guids = {}

    def claim_guid(g, line):
        if g in guids:
            raise IdlError(line, "uuid %s is used twice (first on line %d)" % (g, guids[g]))
        guids[g] = line

    claim_guid(lib.uuid, lib.line)

    enums = {}
    for en in lib.enums:
        claim(en.name, en.line)
        a = attr_map(en.attrs, KNOWN_ATTRIBUTES["enum"], "an enumeration")
        if "uuid" in a:
            en.uuid = guid_arg(a["uuid"])
            claim_guid(en.uuid, en.line)
        if "helpstring" in a:
            en.doc = Parser.string_arg(a["helpstring"])
        en.hidden = flag_attr(a, "hidden")
        seen = {}
        if not en.values:
            raise IdlError(en.line, "enumeration '%s' has no members" % en.name)
        for vname, value, _doc, vline in en.values:
            claim(vname, vline)
            if not -2**31 <= value < 2**31:
                raise IdlError(vline, "value of '%s' does not fit 32 bits" % vname)
            seen[vname] = value
        enums[en.name] = en

    interfaces = {}
    for itf in lib.interfaces:
        claim(itf.name, itf.line)
        interfaces[itf.name] = itf
    for name, line in lib.forward.items():
        if name not in interfaces:
            raise IdlError(line, "interface '%s' is declared but never defined" % name)

    enum_values = {}
    for en in lib.enums:
        for vname, value, _doc, _line in en.values:
            enum_values[vname] = (en, value)

    # Interfaces: attributes, bases.
    for itf in lib.interfaces:
        what = "a dispinterface" if itf.dispinterface else "an interface"
        a = attr_map(itf.attrs, KNOWN_ATTRIBUTES["dispinterface" if itf.dispinterface else "interface"], what)
        if "uuid" not in a:
            raise IdlError(itf.line, "%s '%s' has no uuid" % (what.split(" ", 1)[1], itf.name))
        itf.uuid = guid_arg(a["uuid"])
        claim_guid(itf.uuid, itf.line)
        if "helpstring" in a:
            itf.doc = Parser.string_arg(a["helpstring"])
        for f in ("dual", "oleautomation", "nonextensible", "hidden", "object", "restricted"):
            if flag_attr(a, f):
                itf.flags.append(f)
        itf.dual = "dual" in itf.flags
        if not itf.dispinterface:
            if "object" not in itf.flags:
                raise IdlError(itf.line, "interface '%s' lacks the attribute 'object'" % itf.name)
            if itf.base_name in ("IDispatch", "IUnknown"):
                itf.base = None
            elif itf.base_name in interfaces and not interfaces[itf.base_name].dispinterface:
                itf.base = interfaces[itf.base_name]
            else:
                raise IdlError(itf.line, "unknown base interface '%s' of '%s'" % (itf.base_name, itf.name))
            if itf.dual and not itf.derives_from_dispatch():
                raise IdlError(itf.line, "dual interface '%s' must derive from IDispatch" % itf.name)
    # Cycles and definition order.
    for itf in lib.interfaces:
        seen = set()
        cur = itf
        while cur is not None:
            if cur.name in seen:
                raise IdlError(itf.line, "interface '%s' derives from itself" % itf.name)
            seen.add(cur.name)
            cur = cur.base
        if itf.base is not None and lib.interfaces.index(itf.base) > lib.interfaces.index(itf):
            raise IdlError(itf.line, "base interface '%s' must be defined before '%s'" % (itf.base.name, itf.name))

    def resolve_type(t, what):
        if t.name == "SAFEARRAY":
            resolve_type(t.element, what)
            if t.element.kind not in ("base",) or t.element.pointers:
                raise IdlError(t.line, "SAFEARRAY of '%s' is not supported" % t.element.spelled())
            if t.element.name in ("HRESULT", "void"):
                raise IdlError(t.line, "SAFEARRAY of '%s' is not supported" % t.element.name)
            t.kind = "array"
            t.level = t.pointers
            return
        if t.name in ("IDispatch", "IUnknown"):
            if t.pointers < 1:
                raise IdlError(t.line, "interface '%s' must be passed by pointer in %s" % (t.name, what))
            t.kind = "interface"
            t.target = None
            t.level = t.pointers - 1
            return
        if t.name in BASE_TYPES:
            t.kind = "base"
            t.level = t.pointers
            return
        if t.name in enums:
            t.kind = "enum"
            t.target = enums[t.name]
            t.level = t.pointers
            return
        if t.name in interfaces:
            target = interfaces[t.name]
            if t.pointers < 1:
                raise IdlError(t.line, "interface '%s' must be passed by pointer in %s" % (t.name, what))
            t.kind = "interface"
            t.target = target
            t.level = t.pointers - 1
            return
        raise IdlError(t.line, "unknown type '%s' in %s" % (t.name, what))

    for itf in lib.interfaces:
        by_name_kind = {}
        by_dispid = {}
        for m in itf.members:
            m.owner = itf
            what = "member '%s' of '%s'" % (m.name, itf.name)
            a = attr_map(m.attrs, KNOWN_ATTRIBUTES["member"], "a member")
            if "id" not in a:
                raise IdlError(m.line, "%s has no id" % what)
            ida = a["id"]
            text = "".join(t.value for t in ida.args)
            if not re.fullmatch(r"-?(0[xX][0-9A-Fa-f]+|[0-9]+)", text):
                raise IdlError(ida.line, "id of %s must be an integer, found '%s'" % (what, text))
            m.dispid = int(text, 0)
            if not -2**31 <= m.dispid < 2**32:
                raise IdlError(ida.line, "id of %s does not fit 32 bits" % what)
            if m.dispid >= 2**31:
                m.dispid -= 2**32
            kinds = [k for k in ("propget", "propput", "propputref") if flag_attr(a, k)]
            if len(kinds) > 1:
                raise IdlError(m.line, "%s has more than one of propget, propput, propputref" % what)
            if kinds:
                m.invkind = {"propget": "INVOKE_PROPERTYGET", "propput": "INVOKE_PROPERTYPUT",
                             "propputref": "INVOKE_PROPERTYPUTREF"}[kinds[0]]
            m.hidden = flag_attr(a, "hidden")
            m.restricted = flag_attr(a, "restricted")
            if "helpstring" in a:
                m.doc = Parser.string_arg(a["helpstring"])
            resolve_type(m.ret, "the result of " + what)
            if m.ret.kind != "base" or m.ret.name not in ("HRESULT", "void") or m.ret.pointers:
                raise IdlError(m.ret.line, "%s must return HRESULT" % what)
            if m.ret.name == "void" and not itf.dispinterface:
                raise IdlError(m.ret.line, "%s must return HRESULT" % what)
            # Parameters.
            pnames = set()
            seen_optional = False
            for i, p in enumerate(m.params):
                pwhat = "parameter '%s' of %s" % (p.name, what)
                if p.name in pnames:
                    raise IdlError(p.line, "parameter name '%s' is used twice in %s" % (p.name, what))
                pnames.add(p.name)
                pa = attr_map(p.attrs, KNOWN_ATTRIBUTES["param"], "a parameter")
                p.is_in = flag_attr(pa, "in")
                p.is_out = flag_attr(pa, "out")
                p.retval = flag_attr(pa, "retval")
                p.optional = flag_attr(pa, "optional")
                if not p.is_in and not p.is_out:
                    p.is_in = True
                resolve_type(p.type, pwhat)
                if p.type.kind == "base" and p.type.name in ("HRESULT", "void"):
                    raise IdlError(p.line, "%s cannot be of type %s" % (pwhat, p.type.name))
                if p.is_in and p.is_out:
                    raise IdlError(p.line, "%s: [in, out] parameters are not supported" % pwhat)
                if p.is_out:
                    if p.type.level != 1:
                        raise IdlError(p.line, "%s: an [out] parameter is a pointer to its value" % pwhat)
                else:
                    if p.type.level != 0:
                        raise IdlError(p.line, "%s: an [in] parameter is passed by value, found '%s'"
                                       % (pwhat, p.type.spelled()))
                if p.retval:
                    if not p.is_out:
                        raise IdlError(p.line, "%s: [retval] requires [out]" % pwhat)
                    if i != len(m.params) - 1:
                        raise IdlError(p.line, "%s: [retval] must be the last parameter" % pwhat)
                    if itf.dispinterface:
                        raise IdlError(p.line, "%s: events have no [retval]" % pwhat)
                if "defaultvalue" in pa:
                    if not p.is_in:
                        raise IdlError(p.line, "%s: only [in] parameters take a defaultvalue" % pwhat)
                    p.default = default_value(pa["defaultvalue"], p, enum_values, pwhat)
                if p.optional or p.default is not None:
                    if p.is_out:
                        raise IdlError(p.line, "%s: [out] parameters cannot be optional" % pwhat)
                    if p.optional and p.default is None and not (p.type.kind == "base" and
                                                                 p.type.name == "VARIANT"):
                        raise IdlError(p.line, "%s: an [optional] parameter without defaultvalue must be a VARIANT"
                                       % pwhat)
                    seen_optional = True
                elif seen_optional and not p.retval:
                    raise IdlError(p.line, "%s: a required parameter cannot follow an optional one" % pwhat)
            ins = [p for p in m.params if not p.retval]
            if m.invkind == "INVOKE_PROPERTYGET":
                if not m.params or not m.params[-1].retval:
                    raise IdlError(m.line, "%s: a propget ends in an [out, retval] parameter" % what)
                if any(p.is_out for p in ins):
                    raise IdlError(m.line, "%s: a propget has no [out] parameter besides the [retval]" % what)
            if m.invkind in ("INVOKE_PROPERTYPUT", "INVOKE_PROPERTYPUTREF"):
                if not ins or ins[-1].is_out:
                    raise IdlError(m.line, "%s: a property put ends in an [in] value" % what)
                if any(p.retval or p.is_out for p in m.params):
                    raise IdlError(m.line, "%s: a property put has no [out] parameter" % what)
                if ins[-1].optional or ins[-1].default is not None:
                    raise IdlError(m.line, "%s: the value of a property put cannot be optional" % what)
            key = (m.name.lower(), m.invkind)
            if key in by_name_kind:
                raise IdlError(m.line, "%s is declared twice" % what)
            by_name_kind[key] = m
            if m.dispid in by_dispid:
                other = by_dispid[m.dispid]
                if other.name != m.name:
                    raise IdlError(m.line, "id %d of %s is already taken by '%s' (line %d)"
                                   % (m.dispid, what, other.name, other.line))
            else:
                by_dispid[m.dispid] = m
        # Names must agree case-insensitively on one DISPID.
        for m in itf.members:
            for other in itf.members:
                if other is not m and other.name.lower() == m.name.lower() and other.dispid != m.dispid:
                    raise IdlError(other.line, "'%s' has two ids in '%s' (%d and %d)"
                                   % (m.name, itf.name, m.dispid, other.dispid))
    # Members of a derived interface must not reuse the ids of its bases.
    for itf in lib.interfaces:
        if itf.base is None:
            continue
        inherited = {}
        for b in itf.base.chain():
            for m in b.members:
                inherited[m.dispid] = m
        for m in itf.members:
            if m.dispid in inherited and inherited[m.dispid].name != m.name:
                raise IdlError(m.line, "id %d of '%s' collides with '%s' of the base interface '%s'"
                               % (m.dispid, m.name, inherited[m.dispid].name, inherited[m.dispid].owner.name))
            if any(b.name.lower() == m.name.lower() for b in inherited.values()):
                raise IdlError(m.line, "'%s' of '%s' redeclares a member of its base interface" % (m.name, itf.name))

    # Slots.
    for itf in lib.interfaces:
        if itf.dispinterface:
            continue
        first = 7 if itf.base_name == "IDispatch" or (itf.base is not None and itf.derives_from_dispatch()) else 3
        if itf.base is not None:
            first = itf.base.first_slot + len(itf.base.members)
        itf.first_slot = first
        for i, m in enumerate(itf.members):
            m.slot = first + i

    # Coclasses.
    for cc in lib.coclasses:
        claim(cc.name, cc.line)
        a = attr_map(cc.attrs, KNOWN_ATTRIBUTES["coclass"], "a coclass")
        if "uuid" not in a:
            raise IdlError(cc.line, "coclass '%s' has no uuid" % cc.name)
        cc.uuid = guid_arg(a["uuid"])
        claim_guid(cc.uuid, cc.line)
        if "helpstring" in a:
            cc.doc = Parser.string_arg(a["helpstring"])
        cc.creatable = not flag_attr(a, "noncreatable")
        cc.activatable = cc.creatable and not flag_attr(a, "nonactivatable")
        if flag_attr(a, "nonactivatable") and not cc.creatable:
            raise IdlError(cc.line, "coclass '%s': nonactivatable applies to a creatable class only" % cc.name)
        cc.control = flag_attr(a, "control")
        cc.appobject = flag_attr(a, "appobject")
        cc.hidden = flag_attr(a, "hidden")
        base_name = "Veltrane"
        cc.progid = Parser.string_arg(a["progid"]) if "progid" in a else "%s.%s.1" % (base_name, cc.name)
        cc.vi_progid = Parser.string_arg(a["vi_progid"]) if "vi_progid" in a else "%s.%s" % (base_name, cc.name)
        cc.clsid_progid = Parser.string_arg(a["clsid_progid"]) if "clsid_progid" in a else cc.progid
        cc.clsid_vi_progid = (Parser.string_arg(a["clsid_vi_progid"]) if "clsid_vi_progid" in a
                              else cc.vi_progid)
        if not cc.impls:
            raise IdlError(cc.line, "coclass '%s' implements no interface" % cc.name)
        resolved = []
        defaults = {"in": 0, "source": 0}
        seen = set()
        for iname, flags, line, is_disp in cc.impls:
            if iname not in interfaces:
                raise IdlError(line, "coclass '%s' names the unknown interface '%s'" % (cc.name, iname))
            itf = interfaces[iname]
            if is_disp != itf.dispinterface:
                raise IdlError(line, "'%s' is %s" % (iname, "a dispinterface" if itf.dispinterface
                                                      else "an interface, not a dispinterface"))
            if iname in seen:
                raise IdlError(line, "coclass '%s' names '%s' twice" % (cc.name, iname))
            seen.add(iname)
            if "default" in flags:
                defaults["source" if "source" in flags else "in"] += 1
            resolved.append((itf, flags, line))
        if defaults["in"] > 1 or defaults["source"] > 1:
            raise IdlError(cc.line, "coclass '%s' has more than one default interface of a kind" % cc.name)
        cc.impls = resolved

    # Library indexes: in order of appearance.
    for i, t in enumerate(lib.order):
        t.index = i
    return lib


def default_value(attr, p, enum_values, pwhat):
    args = attr.args
    t = p.type
    if len(args) == 1 and args[0].kind == "string":
        if not (t.kind == "base" and t.name in ("BSTR", "VARIANT")):
            raise IdlError(attr.line, "%s: a string default needs a BSTR or VARIANT" % pwhat)
        return ("string", decode_string(args[0].value, attr.line))
    text = "".join(x.value for x in args)
    if len(args) == 1 and args[0].kind == "ident":
        word = args[0].value
        if word in ("TRUE", "VARIANT_TRUE"):
            value = ("int", -1 if word == "VARIANT_TRUE" or t.name == "VARIANT_BOOL" else 1)
        elif word in ("FALSE", "VARIANT_FALSE"):
            value = ("int", 0)
        elif word in enum_values:
            en, v = enum_values[word]
            if t.kind == "enum" and t.target is not en:
                raise IdlError(attr.line, "%s: '%s' is no member of '%s'" % (pwhat, word, t.name))
            value = ("int", v)
        else:
            raise IdlError(attr.line, "%s: unknown default value '%s'" % (pwhat, word))
    else:
        m = re.fullmatch(r"-?(0[xX][0-9A-Fa-f]+|[0-9]+)(\.[0-9]+)?", text)
        if not m:
            raise IdlError(attr.line, "%s: default value '%s' is neither a number, a string nor a constant"
                           % (pwhat, text))
        if m.group(2):
            value = ("real", float(text))
        else:
            value = ("int", int(text, 0))
    if t.kind == "interface" or t.kind == "array" or (t.kind == "base" and t.name == "BSTR"):
        raise IdlError(attr.line, "%s: a numeric default does not suit '%s'" % (pwhat, t.spelled()))
    if value[0] == "real" and t.kind == "enum":
        raise IdlError(attr.line, "%s: an enumeration default must be an integer" % pwhat)
    if value[0] == "int" and t.kind == "base":
        ranges = {"short": (-2**15, 2**15), "SHORT": (-2**15, 2**15), "unsigned char": (0, 256),
                  "BYTE": (0, 256), "VARIANT_BOOL": (-2**15, 2**15), "unsigned short": (0, 2**16),
                  "unsigned long": (0, 2**32)}
        lo, hi = ranges.get(t.name, (-2**31, 2**31))
        if not lo <= value[1] < hi:
            raise IdlError(attr.line, "%s: default %d is out of range for '%s'" % (pwhat, value[1], t.name))
    return value


# --------------------------------------------------------------------------
# C++ rendering helpers

def guid_init(g):
    parts = g.split("-")
    d4 = parts[3] + parts[4]
    bytes_ = ", ".join("0x%s" % d4[i:i + 2] for i in range(0, 16, 2))
    return "{0x%s, 0x%s, 0x%s, {%s}}" % (parts[0], parts[1], parts[2], bytes_)


def value_vt(t):
    """VARTYPE name of the value a parameter carries (pointer level removed)."""
    if t.kind == "array":
        return "VT_ARRAY | %s" % BASE_TYPES[t.element.name][1]
    if t.kind == "enum":
        return "VT_I4"
    if t.kind == "interface":
        if t.target is None:
            return "VT_DISPATCH" if t.name == "IDispatch" else "VT_UNKNOWN"
        return "VT_DISPATCH" if t.target.derives_from_dispatch() else "VT_UNKNOWN"
    return BASE_TYPES[t.name][1]


def value_cxx(t):
    if t.kind == "array":
        return "SAFEARRAY*"
    if t.kind == "enum":
        return t.name
    if t.kind == "interface":
        return t.name + "*"
    return BASE_TYPES[t.name][0]


def param_cxx(p):
    return value_cxx(p.type) + "*" * p.type.level


def accessor(t):
    """Expression fragment reading the value of VARIANT `v` (as pointer) for an [in] parameter."""
    if t.kind == "array":
        return "V_ARRAY(%s)"
    if t.kind == "enum":
        return "static_cast<" + t.name + ">(V_I4(%s))"
    if t.kind == "interface":
        if t.target is None:
            return "V_DISPATCH(%s)" if t.name == "IDispatch" else "V_UNKNOWN(%s)"
        return "static_cast<" + t.name + "*>(V_UNKNOWN(%s))"
    if t.name == "VARIANT":
        return "*%s"
    return BASE_TYPES[t.name][2] + "(%s)"


def store(t, target, local):
    """Statements storing the typed local into the VARIANT pointer `target`."""
    if t.kind == "base" and t.name == "VARIANT":
        raise AssertionError("VARIANT results are written in place")
    vt = value_vt(t)
    if t.kind == "array":
        member = "V_ARRAY"
    elif t.kind == "enum":
        return ["V_VT(%s) = VT_I4;" % target, "V_I4(%s) = static_cast<LONG>(%s);" % (target, local)]
    elif t.kind == "interface":
        if vt == "VT_DISPATCH":
            return ["V_VT(%s) = VT_DISPATCH;" % target, "V_DISPATCH(%s) = %s;" % (target, local)]
        return ["V_VT(%s) = VT_UNKNOWN;" % target, "V_UNKNOWN(%s) = %s;" % (target, local)]
    else:
        member = BASE_TYPES[t.name][2]
    return ["V_VT(%s) = %s;" % (target, vt), "%s(%s) = %s;" % (member, target, local)]


def local_init(t):
    if t.kind in ("interface", "array") or (t.kind == "base" and t.name == "BSTR"):
        return "nullptr"
    if t.kind == "base" and t.name in ("CURRENCY", "CY"):
        return "{}"
    if t.kind == "enum":
        return "static_cast<%s>(0)" % t.name
    return "0"


def flags_expr(names, default="0"):
    return " | ".join(names) if names else default


def thunk_name(m):
    return "%s_%s" % (m.owner.name, m.cxx_name)


# --------------------------------------------------------------------------
# Emitters

HEADER_BANNER = "// Generated by tools/typelibgen.py from %s. Do not edit.\n"


def emit_header(lib, source_name):
    o = []
    w = o.append
    w(HEADER_BANNER % source_name)
    w("#pragma once\n\n")
    w('#include "platform/oaidl.h"\n\n')
    w("namespace veltrane::tlb {\nstruct TypeData;\nstruct LibraryData;\n")
    w("// The description of %s, registered with the platform when loaded.\n" % lib.name)
    w("const LibraryData& %sLibrary();\n" % library_function_prefix(lib))
    w("}  // namespace veltrane::tlb\n")
    w("// Dispatch table of a generated interface: veltrane_dispatch_table<IRfcType>::get().\n")
    w("template <class Itf>\nstruct veltrane_dispatch_table;\n\n")

    w("// Library %s %d.%d\n" % (lib.name, lib.version[0], lib.version[1]))
    w('extern "C" VELTRANE_API const GUID LIBID_%s;\n' % lib.name)
    if lib.appid:
        w('extern "C" VELTRANE_API const GUID APPID_%s;\n' % lib.name)
    w("inline constexpr WORD %s_MAJOR = %d;\n" % (lib.name, lib.version[0]))
    w("inline constexpr WORD %s_MINOR = %d;\n\n" % (lib.name, lib.version[1]))

    for itf in lib.interfaces:
        w("struct %s;\n" % itf.name)
    w("\n")

    for en in lib.enums:
        if en.doc:
            w("// %s\n" % en.doc)
        w("typedef enum %s : LONG {\n" % en.name)
        for vname, value, doc, _line in en.values:
            w("  %s = %d,%s\n" % (vname, value, ("  // " + doc) if doc else ""))
        w("} %s;\n\n" % en.name)

    for itf in lib.interfaces:
        prefix = "DIID" if itf.dispinterface else "IID"
        w('extern "C" VELTRANE_API const IID %s_%s;\n' % (prefix, itf.name))
    w("\n")
    for cc in lib.coclasses:
        w('extern "C" VELTRANE_API const CLSID CLSID_%s;\n' % cc.name)
    w("\n")

    for itf in lib.interfaces:
        if itf.doc:
            w("// %s\n" % itf.doc)
        if itf.dispinterface:
            w("struct %s : public IDispatch {\n protected:\n  ~%s() = default;\n};\n" % (itf.name, itf.name))
            w("VELTRANE_DECLARE_IID(%s, DIID_%s);\n" % (itf.name, itf.name))
            w("template <>\nstruct veltrane_base_of<%s> {\n  using type = IDispatch;\n};\n\n" % itf.name)
            continue
        base = itf.base.name if itf.base is not None else itf.base_name
        w("struct %s : public %s {\n" % (itf.name, base))
        for m in itf.members:
            params = ", ".join("%s %s" % (param_cxx(p), p.name) for p in m.params)
            w("  virtual HRESULT STDMETHODCALLTYPE %s(%s) = 0;\n" % (m.cxx_name, params))
        w("\n protected:\n  ~%s() = default;\n};\n" % itf.name)
        w("VELTRANE_DECLARE_IID(%s, IID_%s);\n" % (itf.name, itf.name))
        w("template <>\nstruct veltrane_base_of<%s> {\n  using type = %s;\n};\n" % (itf.name, base))
        w("template <>\nstruct VELTRANE_API veltrane_dispatch_table<%s> {\n  static const veltrane::tlb::TypeData& get();\n};\n\n"
          % itf.name)

    w("// ProgIDs of the classes.\n")
    for cc in lib.coclasses:
        w("inline constexpr OLECHAR PROGID_%s[] = %s;\n" % (cc.name, u16(cc.progid)))
        w("inline constexpr OLECHAR VIPROGID_%s[] = %s;\n" % (cc.name, u16(cc.vi_progid)))
    return "".join(o)


def emit_guids(lib, source_name):
    o = [HEADER_BANNER % source_name, '#include "veltrane_tlb.h"\n\n']
    w = o.append
    w('extern "C" const GUID LIBID_%s = %s;\n' % (lib.name, guid_init(lib.uuid)))
    if lib.appid:
        w('extern "C" const GUID APPID_%s = %s;\n' % (lib.name, guid_init(lib.appid)))
    for itf in lib.interfaces:
        prefix = "DIID" if itf.dispinterface else "IID"
        w('extern "C" const IID %s_%s = %s;\n' % (prefix, itf.name, guid_init(itf.uuid)))
    for cc in lib.coclasses:
        w('extern "C" const CLSID CLSID_%s = %s;\n' % (cc.name, guid_init(cc.uuid)))
    return "".join(o)


def thunk_members(lib):
    return [m for itf in lib.interfaces if not itf.dispinterface for m in itf.members]


def emit_thunk_decls(lib, source_name):
    o = [HEADER_BANNER % source_name, "#pragma once\n\n", '#include "veltrane_tlb.h"\n\n',
         "namespace veltrane::tlb::thunks {\n\n"]
    for m in thunk_members(lib):
        o.append("HRESULT %s(IDispatch* self, VARIANT* args, VARIANT* result);\n" % thunk_name(m))
    o.append("\n}  // namespace veltrane::tlb::thunks\n")
    return "".join(o)


def emit_thunk(m):
    o = []
    w = o.append
    itf = m.owner
    ins = [p for p in m.params if not p.retval]
    ret = m.params[-1] if m.params and m.params[-1].retval else None
    uses_args = bool(ins)
    w("HRESULT %s(IDispatch* self, VARIANT* %s, VARIANT* %s) {\n"
      % (thunk_name(m), "args" if uses_args else "", "result" if ret else ""))
    call_args = []
    post = []
    for i, p in enumerate(ins):
        slot = "&args[%d]" % i
        if p.is_out:
            if p.type.kind == "base" and p.type.name == "VARIANT":
                call_args.append(slot)
            else:
                local = "out%d" % i
                w("  %s %s = %s;\n" % (value_cxx(p.type), local, local_init(p.type)))
                call_args.append("&" + local)
                post.extend(store(p.type, slot, local))
        else:
            call_args.append(accessor(p.type) % slot)
    if ret is not None:
        if ret.type.kind == "base" and ret.type.name == "VARIANT":
            call_args.append("result")
        else:
            w("  %s ret = %s;\n" % (value_cxx(ret.type), local_init(ret.type)))
            call_args.append("&ret")
            post.extend(store(ret.type, "result", "ret"))
    call = "static_cast<%s*>(self)->%s(%s)" % (itf.name, m.cxx_name, ", ".join(call_args))
    if post:
        w("  const HRESULT hr = %s;\n" % call)
        for line in post:
            w("  %s\n" % line)
        w("  return hr;\n")
    else:
        w("  return %s;\n" % call)
    w("}\n\n")
    return "".join(o)


def emit_thunk_parts(lib, source_name, parts):
    members = thunk_members(lib)
    per = (len(members) + parts - 1) // parts if members else 0
    out = []
    for i in range(parts):
        chunk = members[i * per:(i + 1) * per]
        o = [HEADER_BANNER % source_name, '#include "veltrane_tlb_thunks.h"\n\n',
             "namespace veltrane::tlb::thunks {\n\n"]
        for m in chunk:
            o.append(emit_thunk(m))
        o.append("}  // namespace veltrane::tlb::thunks\n")
        out.append("".join(o))
    return out


def ref_of(t):
    if t.kind in ("enum", "interface") and t.target is not None:
        return str(t.target.index)
    return "kNoRef"


def param_info(p):
    flags = []
    if p.is_in:
        flags.append("PARAMFLAG_FIN")
    if p.is_out:
        flags.append("PARAMFLAG_FOUT")
    if p.retval:
        flags.append("PARAMFLAG_FRETVAL")
    if p.optional or p.default is not None:
        flags.append("PARAMFLAG_FOPT")
    if p.default is not None:
        flags.append("PARAMFLAG_FHASDEFAULT")
    kind, i, r, s = "DefaultKind::None", "0", "0.0", "nullptr"
    if p.default is not None:
        if p.default[0] == "int":
            kind, i = "DefaultKind::Integer", str(p.default[1])
        elif p.default[0] == "real":
            kind, r = "DefaultKind::Real", repr(p.default[1])
        else:
            kind, s = "DefaultKind::String", u16(p.default[1])
    return "{%s, %s, %s, %d, %s, %s, %s, %s, %s}" % (
        u16(p.name), value_vt(p.type), ref_of(p.type), p.type.level, flags_expr(flags), kind, i, r, s)


def emit_desc(lib, source_name):
    o = [HEADER_BANNER % source_name,
         '#include "platform/typelib.h"\n#include "veltrane_tlb_thunks.h"\n\n',
         "namespace veltrane::tlb {\nnamespace {\n\n"]
    w = o.append

    for itf in lib.interfaces:
        for m in itf.members:
            if m.params:
                w("const ParamInfo %s_params[] = {\n" % thunk_name(m))
                for p in m.params:
                    w("    %s,\n" % param_info(p))
                w("};\n")
        if itf.members:
            w("const MemberInfo %s_members[] = {\n" % itf.name)
            for m in itf.members:
                fflags = []
                if m.restricted:
                    fflags.append("FUNCFLAG_FRESTRICTED")
                if m.hidden:
                    fflags.append("FUNCFLAG_FHIDDEN")
                thunk = "nullptr" if itf.dispinterface else "&thunks::%s" % thunk_name(m)
                w("    {%s, %d, %s, %s, %d, %s, %d, %s, %s, %s},\n" % (
                    u16(m.name), m.dispid, m.invkind, flags_expr(fflags), m.slot,
                    "VT_VOID" if m.ret.name == "void" else "VT_HRESULT", len(m.params),
                    ("%s_params" % thunk_name(m)) if m.params else "nullptr", u16(m.doc or None), thunk))
            w("};\n")
        w("\n")

    for itf in lib.interfaces:
        members = [m for b in (itf.chain() if not itf.dispinterface else [itf]) for m in b.members]
        if members:
            w("const MemberInfo* const %s_dispatch[] = {\n" % itf.name)
            for m in members:
                w("    &%s_members[%d],\n" % (m.owner.name, m.owner.members.index(m)))
            w("};\n")
    w("\n")

    for en in lib.enums:
        w("const EnumValueInfo %s_values[] = {\n" % en.name)
        for vname, value, doc, _line in en.values:
            w("    {%s, %d, %s},\n" % (u16(vname), value, u16(doc or None)))
        w("};\n")
    for cc in lib.coclasses:
        w("const ImplTypeInfo %s_impls[] = {\n" % cc.name)
        for itf, flags, _line in cc.impls:
            f = []
            if "default" in flags:
                f.append("IMPLTYPEFLAG_FDEFAULT")
            if "source" in flags:
                f.append("IMPLTYPEFLAG_FSOURCE")
            w("    {%d, %s},\n" % (itf.index, flags_expr(f)))
        w("};\n")
    w("\n")

    for t in lib.order:
        if isinstance(t, (Interface, CoClass)) or t.uuid:
            w("const GUID %s_guid = %s;\n" % (t.name, guid_init(t.uuid)))
    w("\n")

    w("const TypeData kTypes[] = {\n")
    for t in lib.order:
        if isinstance(t, Enum):
            tflags = ["TYPEFLAG_FHIDDEN"] if t.hidden else []
            w("    {%s, %s, TKIND_ENUM, %s, %s, kNoRef, 0, 0, nullptr, 0, nullptr, %d, %s_values, 0, nullptr},\n"
              % (u16(t.name), ("&%s_guid" % t.name) if t.uuid else "nullptr", flags_expr(tflags),
                 u16(t.doc or None), len(t.values), t.name))
        elif isinstance(t, Interface):
            tflags = ["TYPEFLAG_FDISPATCHABLE"] if t.derives_from_dispatch() else []
            if t.dual:
                tflags.append("TYPEFLAG_FDUAL")
            if "oleautomation" in t.flags or t.dual:
                tflags.append("TYPEFLAG_FOLEAUTOMATION")
            if "nonextensible" in t.flags:
                tflags.append("TYPEFLAG_FNONEXTENSIBLE")
            if "hidden" in t.flags:
                tflags.append("TYPEFLAG_FHIDDEN")
            if "restricted" in t.flags:
                tflags.append("TYPEFLAG_FRESTRICTED")
            if t.dispinterface:
                kind, base, first = "TKIND_DISPATCH", "kRefIDispatch", 7
            else:
                kind = "TKIND_INTERFACE"
                base = str(t.base.index) if t.base is not None else (
                    "kRefIDispatch" if t.base_name == "IDispatch" else "kRefIUnknown")
                first = t.first_slot
            flat = len(t.members) if t.dispinterface else sum(len(b.members) for b in t.chain())
            w("    {%s, &%s_guid, %s, %s, %s, %s, %d, %d, %s, %d, %s, 0, nullptr, 0, nullptr},\n" % (
                u16(t.name), t.name, kind, flags_expr(tflags), u16(t.doc or None), base, first,
                len(t.members), ("%s_members" % t.name) if t.members else "nullptr", flat,
                ("%s_dispatch" % t.name) if flat else "nullptr"))
        else:
            tflags = []
            if t.creatable:
                tflags.append("TYPEFLAG_FCANCREATE")
            if t.control:
                tflags.append("TYPEFLAG_FCONTROL")
            if t.appobject:
                tflags.append("TYPEFLAG_FAPPOBJECT")
            if t.hidden:
                tflags.append("TYPEFLAG_FHIDDEN")
            w("    {%s, &%s_guid, TKIND_COCLASS, %s, %s, kNoRef, 0, 0, nullptr, 0, nullptr, 0, nullptr, %d, %s_impls},\n"
              % (u16(t.name), t.name, flags_expr(tflags), u16(t.doc or None), len(t.impls), t.name))
    w("};\n\n")

    w("const ClassIdentity kClasses[] = {\n")
    for cc in lib.coclasses:
        w("    {&%s_guid, %s, %s, %s, %s, %s, %s, %s, %s, %s},\n" % (
            cc.name, u16(cc.name), u16(cc.progid), u16(cc.vi_progid), u16(cc.clsid_progid),
            u16(cc.clsid_vi_progid), u16(cc.doc or None), "true" if cc.creatable else "false",
            "true" if cc.activatable else "false", "true" if cc.control else "false"))
    w("};\n\n")

    w("const GUID kLibId = %s;\n" % guid_init(lib.uuid))
    w("const LibraryData kLibrary{%s, &kLibId, %d, %d, 0x%x, %s, %d, kTypes, %d, kClasses};\n\n" % (
        u16(lib.name), lib.version[0], lib.version[1], lib.lcid, u16(lib.doc or None), len(lib.order),
        len(lib.coclasses)))
    w("// The library reaches the platform when the program or library holding it\n"
      "// is loaded.\n")
    w("[[maybe_unused]] const HRESULT kRegistered = RegisterTypeLibrary(kLibrary);\n\n")
    w("}  // namespace\n\n")
    w("const LibraryData& %sLibrary() { return kLibrary; }\n\n" % library_function_prefix(lib))
    w("}  // namespace veltrane::tlb\n\n")
    for itf in lib.interfaces:
        if itf.dispinterface:
            continue
        w("const veltrane::tlb::TypeData& veltrane_dispatch_table<%s>::get() {\n" % itf.name)
        w("  return veltrane::tlb::kTypes[%d];\n}\n" % itf.index)
    return "".join(o)


def library_function_prefix(lib):
    """VELTRANELib -> Veltrane: the name of the library's accessor, <prefix>Library()."""
    name = lib.name[:-3] if lib.name.endswith("Lib") else lib.name
    return name[:1] + name[1:].lower()


def default_interface(cc):
    """The coclass's default incoming interface, or None."""
    for itf, flags, _line in cc.impls:
        if "default" in flags and "source" not in flags:
            return itf
    for itf, flags, _line in cc.impls:
        if "source" not in flags:
            return itf
    return None


def emit_decl(lib, source_name):
    o = [HEADER_BANNER % source_name, "#pragma once\n\n", '#include "platform/dispatch_impl.h"\n',
         '#include "veltrane_tlb.h"\n\n']
    w = o.append
    w("// The members of an interface as its implementing class declares them,\n"
      "// to define each one out of line; members of the bases are not included:\n"
      "//   class CRfcError : ... {\n"
      "//    public:\n"
      "//     VELTRANE_DECL_IRFCERROR\n"
      "//   };\n")
    for itf in lib.interfaces:
        if itf.dispinterface or not itf.members:
            continue
        lines = []
        for m in itf.members:
            params = ", ".join("%s %s" % (param_cxx(p), p.name) for p in m.params)
            lines.append("  HRESULT STDMETHODCALLTYPE %s(%s) override;" % (m.cxx_name, params))
        w("#define VELTRANE_DECL_%s \\\n%s\n\n" % (itf.name.upper(), " \\\n".join(lines)))
    w("// The bases of the class behind a coclass, for CComObjectBase: Impl\n"
      "// implements the default interface (IDispatchImpl unless given), the class\n"
      "// answers ISupportErrorInfo for that interface and its bases in the library,\n"
      "// and ClassId() gives the coclass's class id.\n"
      "//   class CRfcType : public CComObjectBase<CRfcType, CoClassRfcType<CRfcType>> { ... };\n")
    for cc in lib.coclasses:
        itf = default_interface(cc)
        if itf is None:
            continue
        iids = ", ".join("&IID_%s" % i.name for i in reversed(itf.chain()))
        w("template <class Derived, class Impl = IDispatchImpl<Derived, %s>>\n" % itf.name)
        w("using CoClass%s = CComCoClass<Impl, &CLSID_%s, %s>;\n" % (cc.name, cc.name, iids))
    return "".join(o)


def emit_events(lib, source_name):
    o = [HEADER_BANNER % source_name, "#pragma once\n\n", '#include "veltrane_tlb.h"\n',
         '#include "platform/connection_point.h"\n\n']
    w = o.append
    for itf in lib.interfaces:
        if not itf.dispinterface:
            continue
        short = itf.name.lstrip("_")
        w("// Fires the events of %s to every sink of the connection point; Point\n"
          "// decides where the sinks are kept (IGlobalConnectionPointImpl: in the\n"
          "// global interface table).\n" % itf.name)
        w("template <class T, template <class, const IID*> class Point = IObjectConnectionPointImpl>\n")
        w("class CProxy_%s : public Point<T, &DIID_%s> {\n public:\n" % (short, itf.name))
        for m in itf.members:
            params = ", ".join("%s %s" % (param_cxx(p), p.name) for p in m.params)
            w("  HRESULT Fire_%s(%s) {\n" % (m.name, params))
            n = len(m.params)
            if n:
                w("    VARIANT args[%d];\n" % n)
                # DISPPARAMS carries the arguments in reverse order.
                for i, p in enumerate(reversed(m.params)):
                    slot = "&args[%d]" % i
                    t = p.type
                    if t.kind == "base" and t.name == "VARIANT":
                        w("    args[%d] = %s;\n" % (i, p.name))
                        continue
                    lines = store(t, slot, p.name)
                    for line in lines:
                        w("    %s\n" % line)
                w("    return this->FireEvent(%d, args, %d);\n" % (m.dispid, n))
            else:
                w("    return this->FireEvent(%d, nullptr, 0);\n" % m.dispid)
            w("  }\n")
        w("};\n\n")
    return "".join(o)


def emit_object_map(lib, source_name, creatable):
    """The object map over the creatable coclasses that the build implements."""
    by_name = {cc.name: cc for cc in lib.coclasses}
    entries = []
    for name, header in creatable:
        cc = by_name.get(name)
        if cc is None:
            raise IdlError(1, "--creatable %s: the library has no coclass of that name" % name)
        if not cc.activatable:
            raise IdlError(cc.line, "--creatable %s: the coclass is not creatable by its class id" % name)
        entries.append((cc, header))
    # The map lists the classes in the library's order, whatever order the layers declared them in.
    position = {cc.name: i for i, cc in enumerate(lib.coclasses)}
    entries.sort(key=lambda entry: position[entry[0].name])
    missing = [cc.name for cc in lib.coclasses if cc.activatable and cc.name not in dict(creatable)]
    o = [HEADER_BANNER % source_name]
    o.append("// The classes a client creates by class id, each with its factory function:\n"
             "// the creatable coclasses of the library that this build implements.\n")
    if missing:
        o.append("// Not built, so not creatable (CLASS_E_CLASSNOTAVAILABLE): %s.\n" % ", ".join(missing))
    o.append('#include "shell/object_map.h"\n')
    for header in sorted({h for _cc, h in entries}):
        o.append('#include "%s"\n' % header)
    o.append("\nnamespace veltrane::shell {\n\n")
    if entries:
        o.append("namespace {\n\nconstexpr ObjectEntry kEntries[] = {\n")
        for cc, _header in entries:
            o.append("    {&CLSID_%s, &CreateObjectOf<C%s>},\n" % (cc.name, cc.name))
        o.append("};\n\n}  // namespace\n\n")
        o.append("std::span<const ObjectEntry> ObjectMap() { return kEntries; }\n\n")
    else:
        o.append("std::span<const ObjectEntry> ObjectMap() { return {}; }\n\n")
    o.append("}  // namespace veltrane::shell\n")
    return "".join(o)


def load(path):
    try:
        with open(path, "r", encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        raise SystemExit("%s: error: cannot read: %s" % (path, e.strerror))
    except UnicodeDecodeError:
        raise SystemExit("%s: error: the file is not UTF-8" % path)
    return resolve(Parser(tokenize(text)).parse())


def main(argv):
    ap = argparse.ArgumentParser(description="Generates the type library sources from its description.")
    ap.add_argument("idl", help="the library description")
    ap.add_argument("--header-dir", help="directory of the public headers")
    ap.add_argument("--source-dir", help="directory of the generated sources")
    ap.add_argument("--thunk-parts", type=int, default=3, help="number of files for the late-bound entries")
    ap.add_argument("--check", action="store_true", help="only check the description")
    ap.add_argument("--object-map", help="write the module's object map to this file, and nothing else")
    ap.add_argument("--creatable", action="append", default=[], metavar="NAME=HEADER",
                    help="a creatable class the build implements: C<NAME>, declared in HEADER")
    args = ap.parse_args(argv)
    try:
        lib = load(args.idl)
        creatable = []
        for item in args.creatable:
            name, sep, header = item.partition("=")
            if not sep or not name or not header:
                ap.error("--creatable takes NAME=HEADER, not '%s'" % item)
            creatable.append((name, header))
        object_map = emit_object_map(lib, os.path.basename(args.idl), creatable) if args.object_map else None
    except IdlError as e:
        sys.stderr.write("%s:%d: error: %s\n" % (args.idl, e.line, e.text))
        return 1
    if args.check:
        return 0
    if object_map is not None:
        os.makedirs(os.path.dirname(os.path.abspath(args.object_map)), exist_ok=True)
        write_if_changed(args.object_map, object_map)
        return 0
    if not args.header_dir or not args.source_dir:
        ap.error("--header-dir and --source-dir are required unless --check is given")
    if args.thunk_parts < 1:
        ap.error("--thunk-parts must be at least 1")
    source_name = os.path.basename(args.idl)
    os.makedirs(args.header_dir, exist_ok=True)
    os.makedirs(args.source_dir, exist_ok=True)
    write_if_changed(os.path.join(args.header_dir, "veltrane_tlb.h"), emit_header(lib, source_name))
    write_if_changed(os.path.join(args.header_dir, "veltrane_events.h"), emit_events(lib, source_name))
    write_if_changed(os.path.join(args.header_dir, "veltrane_decl.h"), emit_decl(lib, source_name))
    write_if_changed(os.path.join(args.source_dir, "veltrane_tlb_guids.cpp"), emit_guids(lib, source_name))
    write_if_changed(os.path.join(args.source_dir, "veltrane_tlb_desc.cpp"), emit_desc(lib, source_name))
    write_if_changed(os.path.join(args.source_dir, "veltrane_tlb_thunks.h"), emit_thunk_decls(lib, source_name))
    for i, text in enumerate(emit_thunk_parts(lib, source_name, args.thunk_parts)):
        write_if_changed(os.path.join(args.source_dir, "veltrane_tlb_thunks_%d.cpp" % (i + 1)), text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
