"""The Python examples of the README and the tour of docs/python.md run as they
stand, against a simulated system of their own (its ports put in place of the
default ones)."""

import re
from pathlib import Path

from conftest import run_python

ROOT = Path(__file__).resolve().parents[2]


def python_blocks(path):
    return re.findall(r"```python\n(.*?)```", path.read_text(), re.S)


def on_sim(code, sim):
    code = code.replace('port=8000', f'port={sim.port}').replace('Port = "127.0.0.1", 8000',
                                                                 f'Port = "127.0.0.1", {sim.port}')
    return code.replace('sysnr="00"', f'gwserv="{sim.rfc_port}"')


def test_readme_example(sim):
    blocks = [b for b in python_blocks(ROOT / "README.md") if "veltrane.connect" in b]
    assert len(blocks) == 1 and len(blocks[0].strip().splitlines()) == 3
    out = run_python(on_sim(blocks[0], sim))
    assert "'AIRLINEID': 'LH'" in out


def test_tour(sim):
    tour = python_blocks(ROOT / "docs" / "python.md")[0]
    assert "8000" in tour and 'sysnr="00"' in tour
    out = run_python(on_sim(tour, sim)).splitlines()
    assert "ABAP exception NOT_FOUND" in out
    assert sum(line.startswith("{'CARRID': 'LH'") for line in out) == 5
    assert "hello" in out
    assert any(line.startswith("sent once under ") for line in out)
    assert any(line.startswith("logon refused:") for line in out)
    assert '{"ECHOTEXT":"from ABAP","RESPTEXT":"answered in Python"}' in out
    assert out[-2:] == ["call finished", "async"]
