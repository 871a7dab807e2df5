"""What the release build's tool says of every parameter of every model, for the checks that compare pages with it."""
import json
import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = ROOT / "build/bin/vexactl"
MODELS = ["unknown"] + re.findall(
    r"^MODEL\((\w+)", (ROOT / "classes/services/product/product_models.inc").read_text(), re.M)


def catalogue(model):
    result = subprocess.run([TOOL, "--uri", "local:", "--json", "catalogue"], env={**os.environ, "PRODUCT_ID": model},
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    return [json.loads(line) for line in result.stdout.decode().splitlines()]


def family():
    """By identifier, in ascending order: the facts of each model that has the parameter."""
    parameters = {}
    for model in MODELS:
        for facts in catalogue(model):
            parameters.setdefault(facts["id"], {})[model] = facts
    return dict(sorted(parameters.items()))
