"""What the module's tests share: the module, where the examples and the reference workload are, and
captures made by the workload's generator. ctest sets the paths (python/CMakeLists.txt); run by hand,
they default to this checkout's layout."""
import os
import subprocess
import sys

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
EXAMPLES = os.environ.get("SOMEIP_EXAMPLES_DIR") or os.path.join(ROOT, "examples")
WORKLOADS = os.environ.get("SOMEIP_WORKLOADS_DIR") or os.path.join(ROOT, "..", "shared", "workloads")
GENERATOR = os.path.join(WORKLOADS, "bulk", "gen.py")
BULK_FORMATS = os.path.join(WORKLOADS, "bulk", "bulk.json")
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
    if not os.path.exists(GENERATOR):
        pytest.skip("the reference workload is not beside the repository")
    return sp.Formats(BULK_FORMATS)


def generate_capture(directory, count, seed=1):
    """A capture of `count` reference messages; returns its path."""
    if not os.path.exists(GENERATOR):
        pytest.skip("the reference workload is not beside the repository")
    subprocess.run([sys.executable, GENERATOR, str(directory), str(count), str(seed)], check=True,
                   stdout=subprocess.DEVNULL)
    return os.path.join(str(directory), "bulk.pcap")


def tool_lines(pcap, formats_path):
    """The lines `someip-json capture` writes for a capture."""
    if not TOOL:
        pytest.skip("someip-json is not built")
    run = subprocess.run([TOOL, "capture", pcap, "--formats", formats_path, "--quiet"], check=True,
                         stdout=subprocess.PIPE)
    return run.stdout.decode("utf-8").splitlines()
