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


def test_includes_follow_the_arrows():
    for room, reached in MAY_INCLUDE.items():
        sources = [*(SOURCE / room).glob("*.h"), *(SOURCE / room).glob("*.cpp")]
        assert sources, room
        for source in sources:
            included = re.findall(r'#include "(.+)/[^/]+"', source.read_text())
            assert set(included) <= reached | {room}, source
