"""The type stubs name exactly what the extension has, so that editors complete real calls."""

import ast
import inspect
import pathlib

import orvane
from orvane import _orvane


def public(names):
    return {n for n in names if not n.startswith("_") or n in ("__len__", "__bytes__")}


def test_stubs_match_the_extension():
    stub = ast.parse((pathlib.Path(_orvane.__file__).parent / "_orvane.pyi").read_text())
    stubbed = {
        node.name: public(n.name for n in getattr(node, "body", []) if isinstance(n, ast.FunctionDef))
        for node in stub.body
        if isinstance(node, (ast.ClassDef, ast.FunctionDef)) and not node.name.startswith("_")
    }
    assert set(stubbed) == set(orvane.__all__)
    for name in ("Signature", "Extractor", "Database"):
        have = public(n for n, _ in inspect.getmembers(getattr(orvane, name)))
        assert stubbed[name] == have, name
