"""What the generators of this directory share: C++ literals of Python texts
and the writing of an output file only when its text changed (so that the
build does not recompile what did not change)."""

import os


def u16(s):
    """A char16_t literal of s, or nullptr for None."""
    if s is None:
        return "nullptr"
    out = []
    for ch in s:
        if ch == "\\":
            out.append("\\\\")
        elif ch == '"':
            out.append('\\"')
        elif ch == "\n":
            out.append("\\n")
        elif ch == "\t":
            out.append("\\t")
        elif ord(ch) < 0x20 or ord(ch) > 0x7e:
            out.append("\\u%04x" % ord(ch))
        else:
            out.append(ch)
    return 'u"%s"' % "".join(out)


def narrow(s):
    """A char literal of an ASCII text s, or nullptr for None."""
    return "nullptr" if s is None else u16(s)[1:]


def write_if_changed(path, text):
    try:
        with open(path, "r", encoding="utf-8") as f:
            if f.read() == text:
                return
    except OSError:
        pass
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(tmp, path)
