"""arbolin prune, show --pruning, --importance and --format svg, and fit
--prune cv: the command line over the same pruning as Python."""

import xml.etree.ElementTree as ET

import numpy as np
from sklearn.datasets import load_diabetes

import arbolin
from conftest import fit, run


def sequence_rows(text):
    """(chosen, step, alpha, leaves, risk, cv risk, std error) of show --pruning."""
    rows = []
    for line in text.splitlines()[2:-1]:
        chosen = line.startswith("*")
        fields = line.lstrip("* ").split()
        rows.append((chosen, int(fields[0]), *[np.nan if f == "-" else float(f)
                                               for f in fields[1:]]))
    return rows


def test_prune_by_leaves_and_by_alpha_agree_with_python(tmp_path):
    fit(tmp_path, "iris", "--quiet")
    shown = run("show", "model.json", "--pruning", cwd=tmp_path, status=0).stdout
    rows = sequence_rows(shown)
    assert [r[3] for r in rows] == [5, 4, 3, 2, 1] and rows[0][0]
    path = arbolin.Model.load(tmp_path / "model.json").pruning
    np.testing.assert_allclose([r[2] for r in rows], path["alpha"], rtol=1e-5)
    done = run("prune", "model.json", "--leaves", "3", "--output", "p.json", cwd=tmp_path,
               status=0)
    assert "3 leaves" in done.stdout
    pruned = arbolin.Model.load(tmp_path / "p.json")
    assert pruned.shape[1] == 3 and pruned.pruning["chosen"] == 2
    run("prune", "model.json", "--alpha", repr(float(path["alpha"][2])), "--output", "a.json",
        cwd=tmp_path, status=0)
    assert (tmp_path / "a.json").read_text() == (tmp_path / "p.json").read_text()
    # The pruned model predicts as its tree says, and cannot grow back.
    assert run("predict", "p.json", "iris", cwd=tmp_path, status=0).stdout.count("\n") == 151
    done = run("prune", "p.json", "--alpha", "0", "--output", "b.json", cwd=tmp_path, status=0)
    assert "cannot grow back" in done.stderr
    assert sequence_rows(run("show", "b.json", "--pruning", cwd=tmp_path).stdout)[2][0]


def test_fit_prune_cv_keeps_the_cross_validated_sequence(tmp_path):
    model, done = fit(tmp_path, "diabetes", "--prune", "cv", "--folds", "5", "--seed", "4",
                      "--quiet")
    assert "5-fold cross-validation, rule 1se" in done.stdout
    assert model["pruning"]["folds"] == 5
    rows = sequence_rows(run("show", "model.json", "--pruning", cwd=tmp_path).stdout)
    assert all(np.isfinite(r[5]) and np.isfinite(r[6]) for r in rows)
    python = arbolin.TreeRegressor(prune="cv", folds=5, random_state=4).fit(
        *load_diabetes(return_X_y=True))
    assert python.pruning_["chosen"] == [r[0] for r in rows].index(True)
    plot = run("show", "model.json", "--pruning", "--format", "svg", cwd=tmp_path).stdout
    svg = ET.fromstring(plot)
    ns = {"s": "http://www.w3.org/2000/svg"}
    assert len(svg.findall("s:circle", ns)) == len(rows)


def test_show_importance_lists_the_shares(tmp_path):
    fit(tmp_path, "iris", "--quiet", "--surrogates", "2")
    text = run("show", "model.json", "--importance", cwd=tmp_path, status=0).stdout
    shares = {line.split()[0]: float(line.split()[1]) for line in text.splitlines()[1:]}
    expected = arbolin.Model.load(tmp_path / "model.json").feature_importances()
    names = arbolin.Model.load(tmp_path / "model.json").predictors
    for name, share in zip(names, expected):
        assert abs(shares[name] - share) < 1e-3
    with_surrogates = run("show", "model.json", "--importance", "--surrogates", cwd=tmp_path)
    assert "surrogate gains added" in with_surrogates.stdout


def test_show_svg_draws_a_box_a_node(tmp_path):
    fit(tmp_path, "iris", "--quiet")
    run("show", "model.json", "--format", "svg", "--output", "tree.svg", cwd=tmp_path, status=0)
    root = ET.parse(tmp_path / "tree.svg").getroot()
    groups = root.findall("{http://www.w3.org/2000/svg}g")
    assert len(groups) == arbolin.Model.load(tmp_path / "model.json").shape[0]
    assert all(g.find("{http://www.w3.org/2000/svg}text").text.startswith("node ")
               for g in groups)


def test_prune_needs_a_size(tmp_path):
    fit(tmp_path, "iris", "--quiet")
    done = run("prune", "model.json", "--output", "p.json", cwd=tmp_path, status=2)
    assert "--leaves" in done.stderr
    done = run("fit", "iris", "--prune", "cv", "--alpha", "0.1", cwd=tmp_path, status=2)
    assert "--alpha" in done.stderr


def test_no_progress_when_not_on_a_terminal(tmp_path):
    _, done = fit(tmp_path, "diabetes", "--prune", "cv")
    assert "\r" not in done.stderr and "fold" not in done.stderr
