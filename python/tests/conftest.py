import sys
from pathlib import Path

import pytest

PYTHON = Path(__file__).resolve().parents[1]
REPO = PYTHON.parent
sys.path.insert(0, str(PYTHON))

from tavrek.client import Engine, find_engine  # noqa: E402

BENCH = REPO / "bench" / "spots"
EXAMPLES = REPO / "examples"


@pytest.fixture(scope="session")
def engine_path():
    try:
        return find_engine()
    except Exception as e:  # the suite runs after the build; say so plainly when it didn't
        pytest.fail(f"{e}")


@pytest.fixture
def engine(engine_path):
    with Engine(engine_path, timeout=60) as e:
        yield e


def bench_spot(name: str) -> Path:
    return BENCH / f"spot_{name}.txt"
