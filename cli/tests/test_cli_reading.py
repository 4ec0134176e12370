"""How the tool reads CSV and cost files, mostly differentially: the same data
written two ways grows the same tree, bit for bit (refusals: test_cli_refusals)."""

import json

import numpy as np
import pytest

from conftest import fit, predict, run, said, write_csv as write


def measurements(n=200):
    """x and z numbers, a colour and a class that depends on all three."""
    rows = []
    for i in range(n):
        x = (i * 37 % 101) / 10
        z = (i * 53 % 89) / 7
        colour = ["red", "blue", "green, dark", 'say "grey"'][i * 7 % 4]
        y = "hi" if x + (colour == "red") * 3 > 6 else ("mid" if z > 6 else "lo")
        rows.append([f"{x:g}", f"{z:g}", colour, y])
    return ["x", "z", "colour", "y"], rows


TOKENS = {4: "n/a", 17: "n/a", 50: "n/a", 8: "-"}  # row -> token; line = row + 2


def with_tokens(rows, token_of_row=TOKENS, column=0):
    out = [list(r) for r in rows]
    for i, token in token_of_row.items():
        out[i][column] = token
    return out


def test_a_few_tokens_in_a_numeric_column_are_named_and_can_be_read_as_missing(tmp_path):
    header, rows = measurements()
    tokens = write(tmp_path / "data.csv", header, with_tokens(rows))
    blanks = write(tmp_path / "blank.csv", header,
                   with_tokens(rows, {i: "" for i in TOKENS}))

    # The column is nominal, with a warning that says why.
    model, done = fit(tmp_path, tokens)
    assert said(done, "warning") == [
        'arbolin: warning: data.csv, column 1 (x): 196 of 200 values are numbers, but "n/a" '
        '(3 times, first on line 6) and "-" (once, on line 10) make the column nominal; '
        "--missing n/a,- reads such values as missing, --numeric x makes them errors"]
    assert model["predictors"][0]["kind"] == "nominal"

    # --missing: the same tree as with the tokens left blank.
    read, done = fit(tmp_path, tokens, "--missing", "n/a,-", model="read.json")
    blank, _ = fit(tmp_path, blanks, model="blank.json")
    assert said(done, "warning") == []
    assert read["predictors"][0]["kind"] == "numeric"
    assert read["outputs"] == blank["outputs"]
    assert read["options"]["missing"] == ["n/a", "-"]

    # predict applies the tokens the model was grown with, or those it is given.
    expected = predict(tmp_path / "blank.json", blanks)
    assert predict(tmp_path / "read.json", tokens) == expected
    assert predict(tmp_path / "blank.json", tokens, "--missing", "n/a", "--missing", "-") == \
        expected
    done = run("predict", tmp_path / "blank.json", tokens, status=1)
    assert 'data.csv, line 6, column 1 (x): "n/a" is not a number, and x is a numeric ' \
        "predictor; --missing n/a reads it as missing" in done.stderr

    # --numeric: the first token is an error at its place.
    done = run("fit", tokens, "--numeric", "x", "--output", tmp_path / "n.json", status=1)
    assert 'data.csv, line 6, column 1 (x): "n/a" is not a number, and --numeric makes x ' \
        "numeric" in done.stderr


@pytest.mark.parametrize("numbers, texts, warned", [(9, 1, True), (8, 2, False), (0, 5, False)])
def test_the_warning_takes_nine_numbers_in_ten(tmp_path, numbers, texts, warned):
    rows = [[str(i), "ab"[i % 2]] for i in range(numbers)] + \
        [["bad", "ab"[i % 2]] for i in range(texts)] + [["", "a"]] * 3  # missing: not counted
    _, done = fit(tmp_path, write(tmp_path / "d.csv", ["x", "y"], rows))
    assert bool(said(done, "warning")) == warned
    if warned:
        assert f"{numbers} of {numbers + texts} values are numbers" in done.stderr


def test_a_decimal_comma_is_pointed_out(tmp_path):
    rows = [[f"{i}.5", "ab"[i % 2]] for i in range(12)] + [["3,5", "a"]]
    _, done = fit(tmp_path, write(tmp_path / "d.csv", ["x", "y"], rows, delimiter=";"))
    [warning] = said(done, "warning")
    assert '"3,5" (once, on line 14) make the column nominal (a decimal comma is not read as ' \
        "a decimal point); --numeric x makes them errors" in warning
    assert "--missing" not in warning  # it cannot take a comma


def test_a_mostly_numeric_response_is_named_too(tmp_path):
    rows = [[str(i % 7), str(i)] for i in range(19)] + [["1", "n/a"]]
    model, done = fit(tmp_path, write(tmp_path / "d.csv", ["x", "y"], rows))
    assert model["task"] == "classification"
    [warning] = said(done, "warning")
    assert "column 2 (y): 19 of 20 values are numbers" in warning
    assert "make the tree a classification tree; --missing n/a reads such values as missing, " \
        "--regression makes them errors" in warning
    model, done = fit(tmp_path, tmp_path / "d.csv", "--missing", "n/a")  # a row without response
    assert model["task"] == "regression" and model["training"]["rows_left_out"] == 1
    assert "Left out 1 of 20 rows" in done.stdout and model["training"]["rows"] == 19


@pytest.mark.parametrize("column, value, options, place", [
    ("a", "1e39", [], "line 4, column 1 (a)"),
    ("y", "1e39", [], "line 4, column 3 (y)"),
    ("w", "1e39", ["--weights", "w"], "line 4, column 2 (w)"),
])
def test_single_precision_refuses_what_it_cannot_hold(tmp_path, column, value, options, place):
    header = ["a", "w", "y"]
    rows = [[str(i), "1", str(i % 3)] for i in range(6)]
    rows[2][header.index(column)] = value
    data = write(tmp_path / "d.csv", header, rows)
    fit(tmp_path, data, *options)  # double precision holds it
    done = run("fit", data, "--single", "--output", tmp_path / "s.json", *options, status=1)
    assert f'd.csv, {place}: "{value}" is beyond the range of single precision, which ' \
        "--single needs" in done.stderr


def test_single_precision_takes_the_largest_float(tmp_path):
    rows = [[str(i), str(i % 2)] for i in range(6)] + [["3.4028234663852886e38", "1"]]
    model, _ = fit(tmp_path, write(tmp_path / "d.csv", ["a", "y"], rows), "--single")
    assert model["precision"] == "single"


CITIES = ["Genève", "Zürich", "Bâle", "Zug"]


def cities(n=60):
    rows = [[CITIES[i % 4], str(i * 7 % 13), "ab"[(i % 4 == 2) ^ (i % 5 == 0)]] for i in range(n)]
    return ["ville", "größe", "y"], rows


def test_latin1_is_refused_with_its_place_and_read_with_the_option(tmp_path):
    header, rows = cities()
    latin = write(tmp_path / "latin.csv", header, rows, encoding="latin-1")
    utf8 = write(tmp_path / "utf8.csv", header, rows)
    done = run("fit", latin, "--output", tmp_path / "m.json", status=1)
    assert "latin.csv, line 1, column 2: byte 0xF6 is not valid UTF-8; if the file is " \
        "Latin-1, read it with --encoding latin1" in done.stderr

    model, _ = fit(tmp_path, latin, "--encoding", "latin1")
    expected, _ = fit(tmp_path, utf8, model="utf8.json")
    assert (model["outputs"], model["predictors"]) == (expected["outputs"], expected["predictors"])
    assert model["predictors"][0]["levels"] == sorted(CITIES)
    assert predict(tmp_path / "model.json", latin, "--encoding", "latin1") == \
        predict(tmp_path / "model.json", utf8)


@pytest.mark.parametrize("flag, one, other", [
    ("--nominal", "z", "x"), ("--numeric", "x", "z"), ("--ignore", "z", "colour"),
    ("--missing", "n/a", "-")])
def test_a_list_option_takes_one_value_and_adds_up(tmp_path, flag, one, other):
    both = f"{one},{other}"
    header, rows = measurements()
    data = write(tmp_path / "d.csv", header, rows)
    before = run("fit", flag, one, data, "--output", tmp_path / "before.json", status=0)
    after, _ = fit(tmp_path, data, flag, one, model="after.json")
    assert json.loads((tmp_path / "before.json").read_text())["outputs"] == after["outputs"]

    twice, _ = fit(tmp_path, data, flag, one, flag, other, model="twice.json")
    joined, _ = fit(tmp_path, data, flag, both, model="joined.json")
    assert twice["options"][flag[2:]] == joined["options"][flag[2:]] == [one, other]
    assert twice["outputs"] == joined["outputs"]

    done = run("fit", data, flag, one, other, "--output", tmp_path / "x.json", status=2)
    assert f"not expected: {other}" in done.stderr


@pytest.mark.parametrize("delimiter, options, by", [
    (",", [], None), (";", [], "semicolons"), ("\t", [], "tabs"),
    ("|", ["--delimiter", "|"], None)])
def test_every_delimiter_grows_the_same_tree(tmp_path, delimiter, options, by):
    header, rows = measurements()
    rows[0][2] = "red; dark\tor|not"  # quoted: no delimiter inside counts
    comma = write(tmp_path / "comma.csv", header, rows)
    other = write(tmp_path / "other.csv", header, rows, delimiter=delimiter)
    expected, _ = fit(tmp_path, comma, model="comma.json")
    model, done = fit(tmp_path, other, *options)
    assert (model["outputs"], model["predictors"]) == (expected["outputs"], expected["predictors"])
    assert said(done, "note") == ([f"arbolin: note: other.csv: fields separated by {by}, which "
                                   "split the first line most (--delimiter sets another)"]
                                  if by else [])
    assert predict(tmp_path / "comma.json", other, *options) == \
        predict(tmp_path / "comma.json", comma)


@pytest.mark.parametrize("first_line, delimiter, names", [
    ('"a;b;c",d,y', ",", ["a;b;c", "d"]),    # only what is outside quotes counts
    ('"a,b,c";d;y', ";", ["a,b,c", "d"]),
    ("a;b,y", ",", ["a;b"]),                  # a tie goes to the comma
    ("a\tb;c;y", ";", ["a\tb", "c"]),
])
def test_the_delimiter_is_the_one_that_splits_the_first_line_most(tmp_path, first_line,
                                                                  delimiter, names):
    rows = [delimiter.join([str(i)] * len(names) + ["pq"[i % 2]]) for i in range(12)]
    (tmp_path / "d.csv").write_text(first_line + "\n" + "\n".join(rows) + "\n")
    model, _ = fit(tmp_path, tmp_path / "d.csv")
    assert [p["name"] for p in model["predictors"]] == names


@pytest.mark.parametrize("n, noted", [(10, True), (9, False)])
def test_a_column_of_names_is_noted_and_can_be_ignored(tmp_path, n, noted):
    header = ["car", "wt", "cyl", "mpg"]
    rows = [[f"car {i}", f"{2 + i * 0.13:.2f}", "468"[i * 5 % 3], f"{30 - i * 0.6:.1f}"]
            for i in range(n)]
    data = write(tmp_path / "cars.csv", header, rows)
    model, done = fit(tmp_path, data)
    assert said(done, "note") == ([f"arbolin: note: cars.csv, column 1 (car): every one of its {n} "
                            "rows has a value of its own, as in an ID column; --ignore car "
                            "leaves it out"] if noted else [])
    assert model["predictors"][0]["name"] == "car"

    ignored, done = fit(tmp_path, data, "--ignore", "car", model="ignored.json")
    without, _ = fit(tmp_path, write(tmp_path / "without.csv", header[1:], [r[1:] for r in rows]),
                     model="without.json")
    assert said(done, "note") == []
    assert ignored["outputs"] == without["outputs"]
    assert [p["name"] for p in ignored["predictors"]] == ["wt", "cyl"]


def test_costs_in_the_order_of_a_header_row(tmp_path):
    # Row: true class, column: predicted class; the header orders both.
    costs = {("setosa", "versicolor"): 1, ("setosa", "virginica"): 4, ("versicolor", "setosa"): 2,
             ("versicolor", "virginica"): 1, ("virginica", "setosa"): 1,
             ("virginica", "versicolor"): 3}
    plain, shuffled = ["setosa", "versicolor", "virginica"], ["virginica", "setosa", "versicolor"]

    def matrix(order, sep=","):
        return "\n".join(sep.join(str(costs.get((t, p), 0)) for p in order) for t in order) + "\n"
    # The shuffled file is separated by semicolons too.
    (tmp_path / "plain.csv").write_text(matrix(plain))
    (tmp_path / "shuffled.csv").write_text(";".join(shuffled) + "\n" + matrix(shuffled, ";"))
    expected, _ = fit(tmp_path, "iris", "--cost", tmp_path / "plain.csv", model="a.json")
    model, done = fit(tmp_path, "iris", "--cost", tmp_path / "shuffled.csv", model="b.json")
    assert model["outputs"] == expected["outputs"]
    assert "shuffled.csv: fields separated by semicolons" in done.stderr


def test_an_all_zero_cost_matrix_is_warned_of(tmp_path):
    (tmp_path / "zero.csv").write_text("0,0,0\n0,0,0\n0,0,0\n")
    model, done = fit(tmp_path, "iris", "--cost", "zero.csv")
    assert said(done, "warning") == ["arbolin: warning: zero.csv: every cost is 0, so no split can "
                              "lower the cost; the tree will be a single node"]
    assert "nodes 1, leaves 1, depth 0" in done.stdout


@pytest.mark.parametrize("ending", ["\r\n", "\r", "\n"])
def test_a_file_read_in_pieces_loses_nothing_at_their_seams(tmp_path, ending):
    """The tool reads a file a megabyte at a time. A header longer than a
    piece, and a line break on the seam of two pieces (\r\n cut in two),
    give the tree of the same data in a small file."""
    seam = 2 << 20  # the header takes two pieces; the third starts here
    rng = np.random.default_rng(5)
    # Long rows (the zeros change no value), so that few fill the pieces.
    rows = [[f"{v:.6f}", f"{u:.6f}" + "0" * 300, "ab"[int(v > 0.5)]]
            for v, u in rng.random((4000, 2))]
    lines = [",".join(r) for r in rows]
    text = "x" * (seam // 2 + 10) + ",u,class" + ending
    k = 0
    while len(text) + 2 * len(lines[k]) < seam - 1:
        text += lines[k] + ending
        k += 1
    # Zeros after the decimals put this row's line break at the seam.
    extra = seam - 1 - len(text) - len(lines[k])
    lines[k] = rows[k][0] + "0" * extra + lines[k][len(rows[k][0]):]
    text += ending.join(lines[k:]) + ending
    assert text[seam - 1] == ending[0]
    big = tmp_path / "big.csv"
    big.write_bytes(text.encode())
    small = write(tmp_path / "small.csv", ["x", "u", "class"],
                      [line.split(",") for line in lines])
    a, _ = fit(tmp_path, big, "--response", "class", "--max-splits", "5", model="a.json")
    b, _ = fit(tmp_path, small, "--response", "class", "--max-splits", "5", model="b.json")
    assert a["outputs"] == b["outputs"]
