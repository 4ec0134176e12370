"""Times arbolin against its peers on the same data: one full tree (MinParent 10,
MinLeaf 1, every predictor, no surrogates), grown by arbolin through
`arbolin.calyx`, by scikit-learn's DecisionTreeClassifier/Regressor (gini or
squared_error, min_samples_split=10, min_samples_leaf=1), by rpart through
Rscript when R and rpart are installed, and by XGBoost (one tree) when it can be
imported. Not a test: it prints markdown tables of medians, ratios and memory.

    /usr/bin/python3 bench/peers.py table [--rounds R] [--cases a,b,..] [--quick]
    /usr/bin/python3 bench/peers.py scaling [--rounds R]
    /usr/bin/python3 bench/peers.py cases              # the case names
    /usr/bin/python3 bench/peers.py data [--cases a,b] # fill the cache ahead of a run

Each case's data is generated once, deterministically (numpy's default_rng with a
seed made from the case name), into a cache folder (/tmp/arbolin-bench, or
$ARBOLIN_BENCH_CACHE), so that every process reads the same arrays. Every
measurement is a fresh process, `peers.py _run TOOL CASE`, which loads the data,
prepares the call, then times the fit alone and reports its seconds, the resident
size just before it, the fit's own peak above that, and the process's peak.
Rounds interleave the tools: round 1 in the listed order, round 2 reversed, ...
The command-line tool (build/bin/arbolin fit FILE.csv) is timed as a whole process
on the cases of CLI_CASES, with its peak resident size from /usr/bin/time, beside
the size of the CSV file it reads.

Run it alone on the machine; the build is taken from build/ (--build DIR).
"""

import argparse
import importlib.util
import io
import json
import os
import platform
import re
import resource
import shutil
import statistics
import subprocess
import sys
import time
import zlib
from dataclasses import dataclass

import numpy as np

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
PYTHON = "/usr/bin/python3"
CACHE = os.environ.get("ARBOLIN_BENCH_CACHE", "/tmp/arbolin-bench")
GENERATION = 1  # part of every cache file name: raise it when the data change


@dataclass(frozen=True)
class Case:
    name: str
    rows: int
    predictors: int
    regression: bool = False
    missing: float = 0.0        # share of the predictor values made NaN
    nominal: tuple = ()         # levels of the nominal predictors, which come first

    @property
    def label(self):
        what = "regression" if self.regression else "3 classes"
        if self.nominal:
            levels = f"{min(self.nominal)}-{max(self.nominal)}"
            return (f"{rows_text(self.rows)}, {len(self.nominal)} nominal ({levels} levels) + "
                    f"{self.predictors - len(self.nominal)} numeric, {what}")
        extra = f", {self.missing:.0%} missing" if self.missing else ""
        return f"{rows_text(self.rows)} x {self.predictors}, {what}{extra}"


def rows_text(n):
    return f"{n // 1_000_000}M" if n % 1_000_000 == 0 else f"{n // 1000}k"


NOMINAL_LEVELS = (8, 12, 16, 24, 30)
CASES = {c.name: c for c in (
    Case("10k-20-class", 10_000, 20),
    Case("10k-20-reg", 10_000, 20, regression=True),
    Case("10k-100-class", 10_000, 100),
    Case("10k-500-class", 10_000, 500),
    Case("100k-20-class", 100_000, 20),
    Case("100k-20-reg", 100_000, 20, regression=True),
    Case("100k-20-missing", 100_000, 20, missing=0.1),
    Case("100k-nominal", 100_000, 20, nominal=NOMINAL_LEVELS),
    Case("1M-20-class", 1_000_000, 20),
    Case("1M-20-reg", 1_000_000, 20, regression=True),
    # small versions of the special cases, for --quick
    Case("10k-20-missing", 10_000, 20, missing=0.1),
    Case("10k-nominal", 10_000, 20, nominal=NOMINAL_LEVELS),
)}
TABLE = ["10k-20-class", "10k-20-reg", "10k-500-class", "100k-20-class", "100k-20-reg",
         "100k-20-missing", "100k-nominal", "1M-20-class", "1M-20-reg"]
QUICK = ["10k-20-class", "10k-20-reg", "10k-20-missing", "10k-nominal"]
CLI_CASES = {"100k-20-class", "1M-20-class", "10k-20-class"}
SCALING_ROWS = ["10k-20-class", "100k-20-class", "1M-20-class"]
SCALING_PREDICTORS = ["10k-20-class", "10k-100-class", "10k-500-class"]
TOOL_NAMES = {"arbolin": "arbolin", "sklearn": "scikit-learn", "rpart": "rpart",
              "xgboost": "XGBoost", "cli": "arbolin CLI"}


# ----------------------------------------------------------------- the data

def data_path(case, ext="npz"):
    return os.path.join(CACHE, f"{case.name}.g{GENERATION}.{ext}")


def generate(case):
    """X (Fortran order), Y (n by 1) and IsCat of a case, from its own seed."""
    rng = np.random.default_rng(zlib.crc32(case.name.encode()))
    n, d = case.rows, case.predictors
    X = np.empty((n, d), order="F")
    for j in range(d):
        X[:, j] = rng.random(n)
    is_cat = np.zeros((1, d), dtype=bool)
    signal = np.zeros(n)
    for j, levels in enumerate(case.nominal):
        codes = rng.integers(1, levels + 1, n)
        signal += rng.normal(0.0, 0.5, levels + 1)[codes]
        X[:, j] = codes
        is_cat[0, j] = True
    first = len(case.nominal)  # the numeric predictors that carry the signal
    signal += np.sin(6 * X[:, first]) + X[:, first + 1] * X[:, first + 2]
    signal += rng.normal(0.0, 0.3, n)
    if case.regression:
        Y = signal
    else:
        low, high = np.quantile(signal, [1 / 3, 2 / 3])
        Y = np.where(signal < low, 0.0, np.where(signal < high, 1.0, 2.0))
    if case.missing:
        X[rng.random((n, d)) < case.missing] = np.nan
    return X, Y.reshape(n, 1), is_cat


def replace(path, write):
    """Writes through a temporary name, so that a file in the cache is whole."""
    temporary = f"{path}.{os.getpid()}.tmp"
    write(temporary)
    os.replace(temporary, path)


def ensure_data(case, csv=False):
    os.makedirs(CACHE, exist_ok=True)
    path = data_path(case)
    if not os.path.exists(path):
        X, Y, is_cat = generate(case)
        replace(path, lambda p: np.savez(open(p, "wb"), X=X, Y=Y, IsCat=is_cat))
    if csv and not os.path.exists(data_path(case, "csv")):
        with np.load(path) as data:
            replace(data_path(case, "csv"), lambda p: write_csv(p, data["X"], data["Y"]))


def write_csv(path, X, Y):
    """x1..xD,y with every double in full (%.17g reads back to the same bits),
    a missing value as an empty field."""
    names = [f"x{j + 1}" for j in range(X.shape[1])] + ["y"]
    with open(path, "w") as out:
        out.write(",".join(names) + "\n")
        for start in range(0, X.shape[0], 50_000):
            block = np.column_stack([X[start:start + 50_000], Y[start:start + 50_000]])
            text = io.StringIO()
            np.savetxt(text, block, fmt="%.17g", delimiter=",")
            out.write(text.getvalue().replace("nan", ""))


def load(case):
    with np.load(data_path(case)) as data:
        return data["X"], data["Y"], data["IsCat"]


# ------------------------------------------------------- one measurement (child)

def megabytes_of_status(field):
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) / 1024
    return float("nan")


def peak_megabytes():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024


def reset_peak():
    """Sets the kernel's high-water mark of resident memory back to the present
    size, so that the peak read after the fit is the fit's own."""
    try:
        with open("/proc/self/clear_refs", "w") as refs:
            refs.write("5")
        return True
    except OSError:
        return False


def prepare_arbolin(case, X, Y, is_cat):
    import arbolin
    n, d = X.shape
    settings = {
        "X": X, "Y": Y, "W": np.full((n, 1), 1.0 / n), "Rows": np.arange(n, dtype=np.float64),
        "IsCat": is_cat, "CriterionArg": "mse" if case.regression else "gini",
        "MinLeaf": 1.0, "MinParent": 10.0, "MaxSplits": float(n - 1), "SampleSize": float(d),
        "SurrogateCount": 0.0, "MaxCat": 10.0, "AlgCat": 0.0, "CostArg": np.zeros((0, 0)),
        "RiskTolerance": 0.0, "CurvatureFlag": False, "InteractionFlag": False,
        "ChisqFlag": False, "StreamArg": np.zeros((0, 0)), "Verbosity": 0.0,
    }
    inputs = [settings[name] for name in arbolin.INPUT_NAMES]
    outputs = len(arbolin.OUTPUT_NAMES)
    return lambda: arbolin.calyx(outputs, inputs)[0].shape[1]


def prepare_sklearn(case, X, Y, is_cat):
    from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor
    if case.missing:
        # This release of scikit-learn refuses NaN: missing values become a
        # value below every other, the usual stand-in.
        X = np.where(np.isnan(X), -1.0, X)
    if case.regression:
        tree = DecisionTreeRegressor(criterion="squared_error", min_samples_split=10,
                                     min_samples_leaf=1, random_state=0)
        y = Y.ravel()
    else:
        tree = DecisionTreeClassifier(criterion="gini", min_samples_split=10,
                                      min_samples_leaf=1, random_state=0)
        y = Y.ravel().astype(np.int64)
    return lambda: tree.fit(X, y).tree_.node_count


def prepare_xgboost(case, X, Y, is_cat):
    import xgboost
    # One deep tree by the exact greedy method, no shrinkage or regularisation
    # (the exact method needs a depth bound: 30, as rpart's); in classification
    # XGBoost grows one tree per class, so the node count is their sum. The
    # histogram method with unbounded leaves was tried: 60 s and 20 GB at 100k.
    options = dict(n_estimators=1, learning_rate=1.0, reg_lambda=0.0, min_child_weight=0.0,
                   tree_method="exact", max_depth=30, n_jobs=os.cpu_count())
    if case.regression:
        model, y = xgboost.XGBRegressor(**options), Y.ravel()
    else:
        model, y = xgboost.XGBClassifier(**options), Y.ravel().astype(np.int64)
    return lambda: int(model.fit(X, y).get_booster().trees_to_dataframe().shape[0])


RPART = r"""
suppressPackageStartupMessages(library(rpart))
args <- commandArgs(trailingOnly = TRUE)
data <- read.csv(args[1])
if (args[2] == "class") data$y <- factor(data$y)
control <- rpart.control(minsplit = 10, minbucket = 1, cp = 0, maxcompete = 0,
                         maxsurrogate = 0, xval = 0, maxdepth = 30)
gc()
start <- proc.time()[["elapsed"]]
fit <- rpart(y ~ ., data = data, method = args[2], control = control)
cat(proc.time()[["elapsed"]] - start, nrow(fit$frame), "\n")
"""


def run_rpart(case):
    """rpart reads the CSV (nominal codes as numbers); R times its own fit, and
    the peak is that of the R process, the largest child of this one."""
    kind = "anova" if case.regression else "class"
    done = subprocess.run(["Rscript", "--vanilla", "-e", RPART, data_path(case, "csv"), kind],
                          capture_output=True, text=True, check=True)
    seconds, nodes = done.stdout.split()[-2:]
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
    return {"seconds": float(seconds), "nodes": int(nodes), "peak_mb": peak,
            "before_mb": None, "fit_mb": None}


PREPARE = {"arbolin": prepare_arbolin, "sklearn": prepare_sklearn, "xgboost": prepare_xgboost}


def run_child(tool, name):
    case = CASES[name]
    if tool == "rpart":
        result = run_rpart(case)
    else:
        X, Y, is_cat = load(case)
        # A fit of a few rows first, untimed, for every tool alike: loading
        # libraries and starting threads are not part of the fit.
        PREPARE[tool](case, np.asfortranarray(X[:60]), Y[:60], is_cat)()
        fit = PREPARE[tool](case, X, Y, is_cat)
        loading_peak = peak_megabytes()
        before = megabytes_of_status("VmRSS")
        exact = reset_peak()
        start = time.perf_counter()
        nodes = fit()
        seconds = time.perf_counter() - start
        fit_peak = megabytes_of_status("VmHWM") if exact else peak_megabytes()
        result = {"seconds": seconds, "nodes": int(nodes), "before_mb": before,
                  "fit_mb": max(0.0, fit_peak - before),
                  "peak_mb": max(loading_peak, peak_megabytes())}
    print(json.dumps(result))


# ------------------------------------------------------ measurements (parent)

def child_environment(build):
    env = dict(os.environ)
    python = os.path.join(build, "python")
    env["PYTHONPATH"] = python + (os.pathsep + env["PYTHONPATH"] if env.get("PYTHONPATH") else "")
    return env


def measure(tool, case, build):
    if tool == "cli":
        return measure_cli(case, build)
    done = subprocess.run([PYTHON, os.path.abspath(__file__), "_run", tool, case.name],
                          capture_output=True, text=True, env=child_environment(build))
    if done.returncode != 0:
        raise SystemExit(f"{tool} on {case.name} failed:\n{done.stderr}")
    return json.loads(done.stdout.strip().splitlines()[-1])


def measure_cli(case, build):
    """The whole `arbolin fit` process: reading the CSV, preparing, growing,
    printing the summary and writing the model."""
    peak_file = os.path.join(CACHE, "cli.peak")
    command = ["/usr/bin/time", "-f", "%M", "-o", peak_file,
               os.path.join(build, "bin", "arbolin"), "fit", data_path(case, "csv"),
               "--response", "y", "--regression" if case.regression else "--classification",
               "--min-parent", "10", "--min-leaf", "1", "--risk-tolerance", "0", "--quiet",
               "--output", os.path.join(CACHE, "cli.model.json")]
    if case.nominal:
        command += ["--nominal", ",".join(f"x{j + 1}" for j in range(len(case.nominal)))]
    start = time.perf_counter()
    done = subprocess.run(command, capture_output=True, text=True)
    seconds = time.perf_counter() - start
    if done.returncode != 0:
        raise SystemExit(f"the CLI on {case.name} failed:\n{done.stdout}{done.stderr}")
    growing = re.search(r"\(growing ([0-9.e+-]+) s\)", done.stdout)
    nodes = re.search(r"nodes (\d+)", done.stdout)
    with open(peak_file) as peak:
        peak_mb = int(peak.read().split()[-1]) / 1024
    return {"seconds": seconds, "growing": float(growing.group(1)) if growing else None,
            "nodes": int(nodes.group(1)) if nodes else None, "peak_mb": peak_mb,
            "before_mb": None, "fit_mb": None}


def available_tools():
    tools = ["arbolin", "sklearn"]
    skipped = []
    if shutil.which("Rscript") and subprocess.run(
            ["Rscript", "--vanilla", "-e", 'quit(status = !requireNamespace("rpart", quietly = TRUE))'],
            capture_output=True).returncode == 0:
        tools.append("rpart")
    else:
        skipped.append("rpart (no Rscript with the rpart package)")
    if importlib.util.find_spec("xgboost"):
        tools.append("xgboost")
    else:
        skipped.append("XGBoost (not importable)")
    return tools, skipped


def run_cases(names, rounds, big_rounds, build, with_cli, only=None):
    """{case name: {tool: [result per round]}}; progress on standard error.
    `only`: the tools to run, of those available (arbolin always runs)."""
    tools, skipped = available_tools()
    if only is not None:
        skipped += [f"{tool} (not in --tools)" for tool in tools if tool not in only]
        tools = [tool for tool in tools if tool == "arbolin" or tool in only]
    for note in skipped:
        print(f"skipped: {note}", file=sys.stderr)
    results = {}
    for name in names:
        case = CASES[name]
        case_tools = tools + (["cli"] if with_cli and name in CLI_CASES else [])
        ensure_data(case, csv="cli" in case_tools or "rpart" in case_tools)
        results[name] = {tool: [] for tool in case_tools}
        for r in range(big_rounds if case.rows >= 1_000_000 else rounds):
            for tool in case_tools if r % 2 == 0 else case_tools[::-1]:
                result = measure(tool, case, build)
                results[name][tool].append(result)
                print(f"{name:16s} round {r + 1} {tool:8s} {result['seconds']:8.3f} s "
                      f"{result['peak_mb']:7.0f} MB  {result['nodes']} nodes",
                      file=sys.stderr, flush=True)
    return tools, results


def median(runs, key):
    values = [run[key] for run in runs if run.get(key) is not None]
    return statistics.median(values) if values else None


# ----------------------------------------------------------------- the report

def first_value(path, prefix):
    """The value of the first line of a file that starts with prefix."""
    try:
        with open(path) as lines:
            for line in lines:
                if line.startswith(prefix):
                    return line.split(prefix, 1)[1].lstrip(" \t:=").strip().strip('"')
    except OSError:
        pass
    return None


def machine(build):
    import glob
    import sklearn
    memory = int(first_value("/proc/meminfo", "MemTotal").split()[0]) / 1024 ** 2
    megahertz = float(first_value("/proc/cpuinfo", "cpu MHz") or "nan")
    found = glob.glob(os.path.join(build, "CMakeFiles", "*", "CMakeCXXCompiler.cmake"))
    compiler = " ".join(re.sub(r'[")]', "", first_value(found[0], f"set(CMAKE_CXX_COMPILER_{key}")
                               or "") for key in ("ID", "VERSION")) if found else "unknown"
    build_type = first_value(os.path.join(build, "CMakeCache.txt"), "CMAKE_BUILD_TYPE:STRING") \
        or "RelWithDebInfo (the project's default)"
    commit = subprocess.run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"],
                            capture_output=True, text=True).stdout.strip() or "unknown"
    return [
        f"- date: {time.strftime('%Y-%m-%d %H:%M %Z')}; arbolin commit {commit}",
        f"- CPU: {first_value('/proc/cpuinfo', 'model name')} at {megahertz:.0f} MHz, "
        f"{os.cpu_count()} cores ({len(os.sched_getaffinity(0))} usable by this process), "
        f"{memory:.1f} GiB memory; Linux {platform.release()}",
        f"- Python {platform.python_version()}, numpy {np.__version__}, "
        f"scikit-learn {sklearn.__version__}; arbolin built {build_type} by {compiler}",
    ]


def seconds_and_memory(runs):
    if not runs:
        return "-"
    fit = median(runs, "fit_mb")
    growth = f", fit +{fit:.0f}" if fit is not None else ""
    return f"{median(runs, 'seconds'):.3g} s ({median(runs, 'peak_mb'):.0f} MB{growth})"


def table(tools, results):
    peers = [tool for tool in tools if tool != "arbolin"]
    header = (["case", "nodes (arbolin / scikit-learn)"] +
              [f"{TOOL_NAMES[t]} s (peak MB)" for t in peers] +
              ["arbolin s (peak MB)", "arbolin / fastest peer"])
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    for name, runs in results.items():
        case = CASES[name]
        fastest = min(peers, key=lambda t: median(runs[t], "seconds"))
        ratio = median(runs["arbolin"], "seconds") / median(runs[fastest], "seconds")
        label = case.label + (" †" if case.missing else "")
        nodes = f"{runs['arbolin'][0]['nodes']:,} / {runs['sklearn'][0]['nodes']:,}"
        row = ([label, nodes] + [seconds_and_memory(runs[t]) for t in peers] +
               [seconds_and_memory(runs["arbolin"]), f"{ratio:.2f} ({TOOL_NAMES[fastest]})"])
        lines.append("| " + " | ".join(row) + " |")
    rounds = sorted({len(runs["arbolin"]) for runs in results.values()})
    lines += ["", f"Median of {' or '.join(map(str, rounds))} round(s), each run a fresh process. "
              "Peak: the process's peak resident size (interpreter, libraries and data "
              "included); fit +N: how far the fit itself rose above the resident size "
              "before it."]
    if any(CASES[name].missing for name in results):
        lines.append("† scikit-learn " + __import__("sklearn").__version__ +
                     " refuses NaN: it gets -1 in place of a missing value; arbolin gets NaN.")
    return lines


def cli_table(results):
    lines = ["| case | CSV file MB | whole process s | growing s | peak MB | peak / file |",
             "|---|---|---|---|---|---|"]
    for name, runs in results.items():
        if "cli" not in runs:
            continue
        size = os.path.getsize(data_path(CASES[name], "csv")) / 1024 ** 2
        peak = median(runs["cli"], "peak_mb")
        lines.append(f"| {CASES[name].label} | {size:.0f} | {median(runs['cli'], 'seconds'):.3g} | "
                     f"{median(runs['cli'], 'growing'):.3g} | {peak:.0f} | {peak / size:.2f} |")
    return lines if len(lines) > 2 else []


def scaling_table(results, names, step_name):
    lines = [f"| {step_name} | scikit-learn s | growth | arbolin s | growth |",
             "|---|---|---|---|---|"]
    previous = None
    for name in names:
        case = CASES[name]
        times = {t: median(results[name][t], "seconds") for t in ("sklearn", "arbolin")}
        size = case.rows if step_name == "rows" else case.predictors
        cells = [f"{size:,}"]
        for tool in ("sklearn", "arbolin"):
            cells.append(f"{times[tool]:.3g}")
            if previous:
                factor = times[tool] / previous[1][tool]
                exponent = np.log(factor) / np.log(size / previous[0])
                cells.append(f"x{factor:.1f} (exponent {exponent:.2f})")
            else:
                cells.append("")
        lines.append("| " + " | ".join(cells) + " |")
        previous = (size, times)
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    for name in ("table", "scaling"):
        command = commands.add_parser(name)
        command.add_argument("--rounds", type=int, default=3)
        command.add_argument("--big-rounds", type=int,
                             help="rounds for the cases of a million rows (default: --rounds)")
        command.add_argument("--build", default=os.path.join(ROOT, "build"))
        if name == "table":
            command.add_argument("--cases", help="comma-separated case names (see `cases`)")
            command.add_argument("--quick", action="store_true",
                                 help="small cases, one round: to try the script")
            command.add_argument("--no-cli", action="store_true", help="leave out the CLI")
        command.add_argument("--tools", help="comma-separated peers to run (sklearn, rpart, "
                             "xgboost; default: every one installed), e.g. to leave out "
                             "one that takes minutes on a case")
    commands.add_parser("cases")
    data = commands.add_parser("data", help="write the cache of every case, CSV files included")
    data.add_argument("--cases", help="comma-separated case names")
    child = commands.add_parser("_run")
    child.add_argument("tool", choices=sorted(PREPARE) + ["rpart"])
    child.add_argument("case", choices=sorted(CASES))
    args = parser.parse_args()

    if args.command == "_run":
        return run_child(args.tool, args.case)
    if args.command == "cases":
        for case in CASES.values():
            print(f"{case.name:16s} {case.label}")
        return
    if args.command == "data":
        for name in args.cases.split(",") if args.cases else CASES:
            ensure_data(CASES[name], csv=name in CLI_CASES or bool(shutil.which("Rscript")))
        return
    build = os.path.abspath(args.build)
    rounds = 1 if getattr(args, "quick", False) else args.rounds
    big_rounds = args.big_rounds or rounds
    only = None
    if args.tools:
        only = args.tools.split(",")
        unknown = [tool for tool in only if tool not in ("arbolin", "sklearn", "rpart", "xgboost")]
        if unknown:
            parser.error(f"unknown tool {', '.join(unknown)}; known: sklearn, rpart, xgboost")
    print("## Machine\n")
    print("\n".join(machine(build)) + "\n", flush=True)
    if args.command == "table":
        names = QUICK if args.quick else (args.cases.split(",") if args.cases else TABLE)
        unknown = [name for name in names if name not in CASES]
        if unknown:
            parser.error(f"unknown case {', '.join(unknown)}; known: {', '.join(CASES)}")
        tools, results = run_cases(names, rounds, big_rounds, build, not args.no_cli, only)
        print("## Fit seconds, median\n")
        print("\n".join(table(tools, results)))
        cli = cli_table(results)
        if cli:
            print("\n## The command-line tool (`arbolin fit FILE.csv --quiet`), median\n")
            print("\n".join(cli))
    else:
        names = list(dict.fromkeys(SCALING_ROWS + SCALING_PREDICTORS))
        _, results = run_cases(names, rounds, big_rounds, build, with_cli=False, only=only)
        print("## Growth with rows (20 predictors, 3 classes)\n")
        print("\n".join(scaling_table(results, SCALING_ROWS, "rows")))
        print("\n## Growth with predictors (10,000 rows, 3 classes)\n")
        print("\n".join(scaling_table(results, SCALING_PREDICTORS, "predictors")))
    with open(os.path.join(CACHE, f"last-{args.command}.json"), "w") as raw:
        json.dump(results, raw, indent=1)


if __name__ == "__main__":
    main()
