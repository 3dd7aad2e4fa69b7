"""What the module's tests share: the module, where the examples are, the bulk workload's format file
and captures made by its generator. ctest sets the paths (python/CMakeLists.txt); run by hand, they
default to this checkout's layout."""
import atexit
import os
import shutil
import subprocess
import sys
import tempfile

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
EXAMPLES = os.environ.get("SOMEIP_EXAMPLES_DIR") or os.path.join(ROOT, "examples")
GENERATOR = os.environ.get("SOMEIP_BULK_GENERATOR") or os.path.join(ROOT, "bench", "workloads", "bulk.py")
# The generator writes the workload's format file beside its messages: written once, with none.
_FORMATS_DIR = tempfile.mkdtemp(prefix="someip_bulk_formats_")
atexit.register(shutil.rmtree, _FORMATS_DIR, True)
subprocess.run([sys.executable, GENERATOR, _FORMATS_DIR, "0"], check=True, stdout=subprocess.DEVNULL)
BULK_FORMATS = os.path.join(_FORMATS_DIR, "bulk.json")
TOOL = os.environ.get("SOMEIP_TOOL", "")


@pytest.fixture(scope="session")
def sp():
    import someip_parser_vaq

    return someip_parser_vaq


@pytest.fixture(scope="session")
def formats(sp):
    return sp.Formats(os.path.join(EXAMPLES, "formats"))


@pytest.fixture(scope="session")
def bulk_formats(sp):
    return sp.Formats(BULK_FORMATS)


def generate_capture(directory, count, seed=1):
    """A capture of `count` bulk workload messages; returns its path."""
    subprocess.run([sys.executable, GENERATOR, str(directory), str(count), str(seed)], check=True,
                   stdout=subprocess.DEVNULL)
    return os.path.join(str(directory), "bulk.pcap")


def tool_lines(pcap, formats_path):
    """The lines `someip-json capture` writes for a capture."""
    if not TOOL:
        pytest.skip("someip-json is not built")
    run = subprocess.run([TOOL, "capture", pcap, "--formats", formats_path, "--quiet", "--allow-failures"], check=True,
                         stdout=subprocess.PIPE)
    return run.stdout.decode("utf-8").splitlines()
