"""The package installed with the library imports without environment
variables: the module finds the library by its run path, and veltrane.pth
puts the package's directory on the interpreter's path."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

BUILD = os.environ.get("VELTRANE_BINARY_DIR")


@pytest.mark.skipif(not BUILD, reason="needs VELTRANE_BINARY_DIR (set by ctest)")
def test_installed_package_imports_without_environment(sim, tmp_path):
    scratch = Path(BUILD) / "python-install-test"
    shutil.rmtree(scratch, ignore_errors=True)
    prefix, site = scratch / "prefix", scratch / "site"
    env = {**os.environ, "VELTRANE_PYTHON_PTH_DIR": str(site)}
    subprocess.run([os.environ.get("VELTRANE_CMAKE", "cmake"), "--install", BUILD, "--prefix", str(prefix)],
                   check=True, env=env, capture_output=True, text=True)
    pth = site / "veltrane.pth"
    package = Path(pth.read_text().strip())
    assert (package / "veltrane" / "__init__.py").is_file()
    assert str(package).startswith(str(prefix))
    assert list((package / "veltrane").glob("_veltrane*.so"))

    clean = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    code = f"""
import site
site.addsitedir({str(site)!r})  # as the interpreter does with its own site-packages
import veltrane
assert veltrane.__file__.startswith({str(prefix)!r}), veltrane.__file__
with veltrane.connect(url={sim.url!r}, user="DEMO", passwd="Welcome1") as c:
    print(c.call("STFC_CONNECTION", REQUTEXT="installed")["ECHOTEXT"])
"""
    result = subprocess.run([sys.executable, "-c", code], env=clean, capture_output=True, text=True, cwd=tmp_path)
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip() == "installed"


@pytest.mark.skipif(not BUILD, reason="needs VELTRANE_BINARY_DIR (set by ctest)")
def test_a_scratch_install_in_the_build_tree_leaves_the_interpreter_alone(tmp_path):
    prefix = Path(BUILD) / "python-install-test" / "untouched"
    env = {k: v for k, v in os.environ.items() if k != "VELTRANE_PYTHON_PTH_DIR"}
    result = subprocess.run([os.environ.get("VELTRANE_CMAKE", "cmake"), "--install", BUILD, "--prefix", str(prefix)],
                            check=True, env=env, capture_output=True, text=True)
    assert "veltrane.pth ->" not in result.stdout
