"""Named connection settings: the destinations file of the veltrane command,
$XDG_CONFIG_HOME/veltrane/destinations.ini (else ~/.config/veltrane/...) or a
file of one's own. A section [NAME] holds connection options by the command's
long names (backend, host, port, client, user, lang, ashost, sysnr, gwserv,
sdk-dest, ...); never a password.

    [dev]
    backend = nwrfc
    ashost = sap-dev.example.com
    sysnr = 00
    client = 100
    user = JSMITH
"""

import os

# The command's connection options a destination may hold, with the client's
# parameter for each; None: a switch (true or false).
_OPTIONS = {
    "backend": "backend", "host": "host", "port": "port", "endpoint": "endpoint", "client": "client",
    "user": "user", "lang": "lang", "stateful": None, "proxy": "proxy", "proxy-user": "proxy_user",
    "ashost": "ashost", "sysnr": "sysnr", "gwserv": "gwserv", "sdk-dest": "sdk_dest", "ini": "ini",
    "connect": "connect", "sdk": "sdk",
}
_TRUE, _FALSE = {"TRUE", "YES", "1", "X"}, {"FALSE", "NO", "0", ""}


def default_file():
    config = os.environ.get("XDG_CONFIG_HOME")
    if config:
        return os.path.join(config, "veltrane", "destinations.ini")
    return os.path.join(os.environ.get("HOME") or ".", ".config", "veltrane", "destinations.ini")


def entries(text, name, file):
    """The entries of section `name`, by the command's option names. A bad line, a
    password, an unknown key, a key given twice and a missing section are ValueErrors
    naming the file and the line."""
    found, section, result = False, None, {}
    for number, raw in enumerate(text.splitlines(), 1):
        line = raw.strip()
        where = f"{file}:{number}: "
        if not line or line[0] in "#;":
            continue
        if line[0] == "[":
            if line[-1] != "]":
                raise ValueError(where + "a section line ends in ']'")
            section = line[1:-1].strip()
            found |= section == name
            continue
        key, eq, value = line.partition("=")
        if not eq:
            raise ValueError(where + "expected KEY = VALUE")
        key = key.strip()
        if section != name:
            continue
        if "password" in key:
            raise ValueError(where + "a destination holds no password (give passwd= or set VELTRANE_PASSWORD)")
        if key not in _OPTIONS:
            raise ValueError(where + f"'{key}' is not a connection option")
        if key in result:
            raise ValueError(where + f"'{key}' is given twice")
        result[key] = value.strip()
    if not found:
        raise ValueError(f"no destination [{name}] in {file}")
    return result


def settings(name, file=None):
    """The client's parameters of destination `name` (backend among them)."""
    if not name:
        raise ValueError("dest: the name is empty")
    file = str(file) if file else default_file()
    try:
        with open(file, encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        raise ValueError(f"dest: cannot read the destinations file '{file}': {e.strerror}") from None
    params = {}
    for key, value in entries(text, name, file).items():
        if _OPTIONS[key] is None:
            if value.upper() not in _TRUE | _FALSE:
                raise ValueError(f"{file}: [{name}] {key} is true or false, not '{value}'")
            params[key] = value.upper() in _TRUE
        else:
            params[_OPTIONS[key]] = value
    return params
