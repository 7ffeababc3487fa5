"""What is the classic RFC back end's own in the client: the connect string in
the SDK's upper-case names, with the password sent as given."""

import pytest

import veltrane


def test_connect_string_from_the_parameters(monkeypatch):
    backend = veltrane._backends.BACKENDS["rfc"]
    for name in ("VELTRANE_HOST", "VELTRANE_SYSNR", "VELTRANE_GWSERV"):
        monkeypatch.delenv(name, raising=False)
    assert backend.connect_string({}) == "ASHOST=127.0.0.1 SYSNR=00 TOUPPER=0"
    assert backend.connect_string({"ashost": "app1", "sysnr": "05"}) == "ASHOST=app1 SYSNR=05 TOUPPER=0"
    assert backend.connect_string({"mshost": "ms", "r3name": "PRD", "group": "PUBLIC"}) == \
        "MSHOST=ms R3NAME=PRD GROUP=PUBLIC TOUPPER=0"
    assert backend.connect_string({"connect": "DEST=PRD toupper=1"}) == "DEST=PRD toupper=1"
    with pytest.raises(ValueError, match="not a system number"):
        backend.connect_string({"sysnr": "123"})


def test_the_session_gets_the_connect_string(sim):
    with veltrane.connect("rfc", ashost=sim.rfc_host, gwserv=sim.rfc_port, user="demo", passwd="Welcome1") as c:
        assert c.session.RfcSystemData.ConnectString == f"ASHOST={sim.rfc_host} GWSERV={sim.rfc_port} TOUPPER=0"
        assert c.call("STFC_CONNECTION")["RESPTEXT"].endswith("001/DEMO/E")
