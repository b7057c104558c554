"""Each folder of sources includes only those that docs/architecture.md lets it include."""

import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2]
MAY_INCLUDE = {
    "utils": {"text", "statistics"},
    "text": set(),
    "statistics": set(),
    "analysis": {"statistics"},
    "python/src": {"analysis", "statistics"},
}


def test_includes_follow_the_architecture():
    for folder, reached in MAY_INCLUDE.items():
        sources = [*(SOURCE / folder).glob("*.h"), *(SOURCE / folder).glob("*.cpp")]
        assert sources, folder
        for source in sources:
            included = re.findall(r'#include "(.+)/[^/]+"', source.read_text())
            assert set(included) <= reached | {folder}, source
