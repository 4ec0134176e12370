#!/usr/bin/env python3
"""Writes the seeds of fuzz_module_inputs into fuzz/corpus/module_inputs/.

The harness draws from the end of its input: sizes first, then the
criterion, the data, the rows, the settings, the costs and the stream. A
seed is random bytes whose last bytes are set so that the seeds between them
start from calls that reach the module with data: tens of rows, several
predictors, each criterion, all outputs. Run it again after changing the
order of the draws."""

import os
import random

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "module_inputs")

# The last bytes, in the order drawn (the harness reads backwards): not the
# rare output count, 22 minus the output count, not the rare input count,
# rows, predictors, classes less one, criterion (0 gini, 2 deviance, 3
# twoing, 4 error, 5 mse, 8 custom). Each of these draws takes one byte.
SEEDS = {
    "gini": [0, 0, 0, 40, 4, 2, 0],
    "deviance": [0, 0, 0, 64, 6, 4, 2],
    "twoing": [0, 0, 0, 30, 3, 1, 3],
    "error": [0, 0, 0, 50, 5, 3, 4],
    "mse": [0, 0, 0, 64, 6, 0, 5],
    "custom": [0, 0, 0, 20, 2, 2, 8],
    "few rows": [0, 3, 0, 5, 1, 1, 0],
    "no rows": [0, 0, 0, 0, 2, 1, 1],
}


def main():
    os.makedirs(HERE, exist_ok=True)
    for k, (name, tail) in enumerate(SEEDS.items()):
        rng = random.Random(k)
        body = bytes(rng.randrange(256) for _ in range(3000))
        with open(os.path.join(HERE, name.replace(" ", "_")), "wb") as f:
            f.write(body + bytes(reversed(tail)))


if __name__ == "__main__":
    main()
