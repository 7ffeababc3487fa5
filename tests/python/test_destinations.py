"""dest=: connection settings from the veltrane command's destinations file,
for every back end; what the call gives wins; a bad file says where."""

import pytest

import veltrane
from conftest import PASSWORD, USER


def write(path, text):
    path.write_text(text)
    return path


@pytest.fixture
def dest_file(sim, tmp_path):
    return write(tmp_path / "destinations.ini", f"""# the test systems
[soap-dev]
backend = soap
host = {sim.host}
port = {sim.port}
client = 001
user = {USER.lower()}
lang = DE

; over the RFC front, the host standing in for ashost as for the command
[nw-dev]
backend = nwrfc
host = {sim.rfc_host}
gwserv = {sim.rfc_port}
user = {USER}

[rfc-dev]
backend=rfc
ashost={sim.rfc_host}
gwserv={sim.rfc_port}
user={USER}

[stateful]
host = {sim.host}
port = {sim.port}
user = {USER}
stateful = yes
""")


def test_each_back_end_from_its_destination(dest_file):
    with veltrane.connect(dest="soap-dev", dest_file=dest_file, passwd=PASSWORD) as c:
        assert c.backend == "soap"
        assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/D")
    for name, backend in (("nw-dev", "nwrfc"), ("rfc-dev", "rfc")):
        with veltrane.connect(dest=name, dest_file=dest_file, passwd=PASSWORD) as c:
            assert c.backend == backend
            assert c.call("STFC_CONNECTION", REQUTEXT="d")["ECHOTEXT"] == "d"


def test_the_default_file_under_xdg_config_home(dest_file, tmp_path, monkeypatch):
    config = tmp_path / "config"
    (config / "veltrane").mkdir(parents=True)
    (config / "veltrane" / "destinations.ini").write_text(dest_file.read_text())
    monkeypatch.setenv("XDG_CONFIG_HOME", str(config))
    monkeypatch.setenv("VELTRANE_PASSWORD", PASSWORD)
    with veltrane.connect(dest="nw-dev") as c:
        assert c.backend == "nwrfc"
        c.ping()
    monkeypatch.delenv("XDG_CONFIG_HOME")
    monkeypatch.setenv("HOME", str(tmp_path / "nohome"))
    with pytest.raises(ValueError, match="cannot read the destinations file '.*nohome/.config/veltrane/"):
        veltrane.connect(dest="nw-dev")


def test_the_call_wins(dest_file, sim):
    with veltrane.connect(dest="soap-dev", dest_file=dest_file, passwd=PASSWORD, lang="EN") as c:
        assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/E")
    with veltrane.connect("nwrfc", dest="soap-dev", dest_file=dest_file, passwd=PASSWORD,
                          gwserv=sim.rfc_port) as c:  # the destination's host as ashost, its port not taken
        assert c.backend == "nwrfc"
        c.ping()
    with pytest.raises(veltrane.LogonError):
        veltrane.connect(dest="nw-dev", dest_file=dest_file, passwd="wrong")


def test_switches(dest_file, tmp_path):
    with veltrane.connect(dest="stateful", dest_file=dest_file, passwd=PASSWORD) as c:
        assert [c.call("Z_VSIM_COUNTER", STEP=1)["VALUE"] for _ in range(2)] == [1, 2]
    bad = write(tmp_path / "bad.ini", "[x]\nstateful = maybe\n")
    with pytest.raises(ValueError, match=r"\[x\] stateful is true or false, not 'maybe'"):
        veltrane.connect(dest="x", dest_file=bad)


def test_the_sdk_destination_goes_into_the_connect_string(tmp_path):
    f = write(tmp_path / "d.ini", "[prd]\nbackend = nwrfc\nsdk-dest = PRD\nini = /etc/sap\nuser = ME\n")
    backend, params = veltrane.client._with_destination(None, "prd", f, {})
    assert (backend, params) == ("nwrfc", {"sdk_dest": "PRD", "ini": "/etc/sap", "user": "ME"})
    assert veltrane._backends.BACKENDS["nwrfc"].connect_string(params) == "dest=PRD"
    assert veltrane._backends.BACKENDS["rfc"].connect_string({"sdk_dest": "PRD"}) == "DEST=PRD TOUPPER=0"


@pytest.mark.parametrize("text, message", [
    ("[x]\npassword = secret\n", "d.ini:2: a destination holds no password"),
    ("[x]\nproxy-password = secret\n", "d.ini:2: a destination holds no password"),
    ("[x]\ncolour = blue\n", "d.ini:2: 'colour' is not a connection option"),
    ("[x]\ntrace = /tmp/t\n", "d.ini:2: 'trace' is not a connection option"),
    ("[x]\nuser = A\nuser = B\n", "d.ini:3: 'user' is given twice"),
    ("[x]\njust words\n", "d.ini:2: expected KEY = VALUE"),
    ("[other]\nnonsense\n[x]\n", "d.ini:2: expected KEY = VALUE"),
    ("[x\n", "d.ini:1: a section line ends in '\\]'"),
    ("[y]\nuser = A\n", r"no destination \[x\] in .*d.ini"),
])
def test_a_bad_file_says_where(tmp_path, text, message):
    f = write(tmp_path / "d.ini", text)
    with pytest.raises(ValueError, match=message):
        veltrane.connect(dest="x", dest_file=f, passwd="p")


def test_misuse(tmp_path):
    with pytest.raises(ValueError, match="the name is empty"):
        veltrane.connect(dest="", dest_file=tmp_path / "d.ini")
    with pytest.raises(TypeError, match="dest_file goes with dest=NAME"):
        veltrane.connect(dest_file=tmp_path / "d.ini")
    with pytest.raises(ValueError, match="cannot read the destinations file"):
        veltrane.connect(dest="x", dest_file=tmp_path / "missing.ini")
