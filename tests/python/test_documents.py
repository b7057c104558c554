"""The examples of the docstrings and of docs/python.md."""

import doctest
import importlib
import pkgutil

import pytest
import vostrel

MODULES = ["vostrel"] + [
    module.name
    for module in pkgutil.iter_modules(vostrel.__path__, "vostrel.")
    if module.name != "vostrel._core"
]


@pytest.mark.parametrize("name", MODULES)
def test_examples_of_docstrings(name):
    failures, _ = doctest.testmod(importlib.import_module(name))
    assert failures == 0
