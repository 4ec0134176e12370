// Trees from Python through the front-end library, as the command line grows
// and applies them: `_fit` prepares Python columns with the same option
// table, calls the module and returns a `_Model`, which routes new rows,
// hands out its outputs and writes the model file the command line reads.
// The package's `arbolin.fit` and `arbolin.Model` (trees.py) put a
// DataFrame or a dict of columns into the lists these take.
#include <algorithm>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "binding/bindings.hpp"
#include "binding/convert.hpp"
#include "binding/package.hpp"
#include "frontend/importance.hpp"
#include "frontend/model.hpp"
#include "frontend/module_call.hpp"
#include "frontend/pruning.hpp"
#include "frontend/render.hpp"
#include "gateway/contract.hpp"

namespace arbolin::binding {

namespace fe = arbolin::frontend;

namespace {

// ------------------------------------------------------------- wording

std::string keyword(std::string_view option) {
    std::string name(option);
    for (char& c : name) c = c == '-' ? '_' : c;
    return name;
}

const fe::OptionRow* findOption(std::string_view name) {
    for (const fe::OptionRow& row : fe::fitOptions()) {
        if (row.name == name) return &row;
    }
    return nullptr;
}

// The library's messages spell options as flags; in Python they are
// keywords: "option --max-splits: ..." is "option max_splits: ...",
// "--regression" is "regression=True", and a suggestion of a value
// ("--missing n/a,- reads ...") is "missing=['n/a', '-'] reads ...".
std::string pythonWording(const std::string& text) {
    static const std::regex mention(R"(--([a-z][a-z-]*)(?: ([^ ;()]+) (?=reads|leaves|makes))?)");
    std::string out;
    auto last = text.cbegin();
    for (std::sregex_iterator it(text.begin(), text.end(), mention), end; it != end; ++it) {
        const std::smatch& m = *it;
        out.append(last, m[0].first);
        last = m[0].second;
        const fe::OptionRow* row = findOption(m[1].str());
        const bool named = m.position(0) == 7 && text.starts_with("option ");
        if (row == nullptr) {
            out += m[0].str();
        } else if (m[2].matched) {
            std::string list;
            std::string value = m[2].str();
            for (std::size_t start = 0, comma = 0; comma != std::string::npos; start = comma + 1) {
                comma = value.find(',', start);
                list += (list.empty() ? "'" : ", '") + value.substr(start, comma - start) + "'";
            }
            out += keyword(row->name) + "=[" + list + "] ";
        } else if (row->kind == fe::OptionKind::Flag && !named) {
            out += keyword(row->name) + "=True";
        } else {
            out += keyword(row->name);
        }
    }
    out.append(last, text.cend());
    return out;
}

py::list noticeList(const fe::Notices& notices) {
    py::list list;
    for (const fe::Notices::Notice& n : notices.list()) {
        list.append(py::make_tuple(n.level == fe::Notices::Level::Note ? "note" : "warning",
                                   pythonWording(n.text)));
    }
    return list;
}

// --------------------------------------------------------------- tables

// Columns from Python: float64 arrays are Numbers, lists of str (None for
// missing) Labels, or Text for a cost file, which is read as the command
// line reads one. Places are 0-based, as Python counts: "column sex, row 4"
// in a table of named columns, "NAME, row 1, column 2" in a matrix.
class PyTable : public fe::DataTable {
public:
    PyTable(std::string name, std::vector<std::string> header, ColumnType textType)
        : name_(std::move(name)), header_(std::move(header)), textType_(textType) {}

    // A float64 array is Numbers, a sequence of str and None text.
    void add(py::handle column, const std::string& what) {
        Column c;
        if (py::isinstance<py::array>(column)) {
            const auto values = py::array_t<double, py::array::c_style>::ensure(column);
            if (!values || values.ndim() != 1) {
                throw py::type_error(what + " should be a 1-D array of float64");
            }
            c.type = ColumnType::Numbers;
            c.numbers.assign(values.data(), values.data() + values.size());
        } else {
            c.type = textType_;
            for (py::handle value : column) {
                if (!value.is_none() && !PyUnicode_Check(value.ptr())) {
                    throw py::type_error(what + " holds a " + typeName(value) + ", not a str");
                }
                c.texts.push_back(value.is_none() ? std::string() : value.cast<std::string>());
            }
        }
        const std::uint64_t rows = c.texts.size() + c.numbers.size();
        if (!columns_.empty() && rows != rowCount()) {
            throw py::value_error(what + " has " + std::to_string(rows) + " values, but " +
                                  place(std::nullopt, 0) + " has " + std::to_string(rowCount()));
        }
        columns_.push_back(std::move(c));
        if (header_.size() < columns_.size()) header_.emplace_back();
    }

    const std::string& name() const override { return name_; }
    const std::vector<std::string>& header() const override { return header_; }
    std::uint64_t rowCount() const override {
        return columns_.empty() ? 0 : columns_[0].texts.size() + columns_[0].numbers.size();
    }
    ColumnType type(std::uint64_t column) const override { return columns_[column].type; }
    std::string_view field(std::uint64_t row, std::uint64_t column) const override {
        return columns_[column].texts[row];
    }
    double number(std::uint64_t row, std::uint64_t column) const override {
        return columns_[column].numbers[row];
    }
    std::string place(std::optional<std::uint64_t> row, std::uint64_t column) const override {
        const std::string at = row ? ", " + rowName(*row) : "";
        if (header_[column].empty()) return name_ + at + ", column " + std::to_string(column);
        return "column " + header_[column] + at;
    }
    std::string rowName(std::uint64_t row) const override { return "row " + std::to_string(row); }

private:
    struct Column {
        ColumnType type;
        std::vector<std::string> texts;
        std::vector<double> numbers;
    };
    std::string name_;
    std::vector<std::string> header_;
    ColumnType textType_;
    std::vector<Column> columns_;
};

// The data of `_fit` and `_Model.route`: names and columns side by side.
PyTable dataTable(const std::vector<std::string>& names, const py::list& columns) {
    if (names.size() != py::len(columns)) {
        throw py::value_error("the data names " + std::to_string(names.size()) +
                              " columns but holds " + std::to_string(py::len(columns)));
    }
    PyTable table("the data", names, fe::DataTable::ColumnType::Labels);
    for (std::size_t j = 0; j < names.size(); ++j) table.add(columns[j], "column " + names[j]);
    return table;
}

// A cost matrix given as a K by K array, or as the rows of a cost file.
PyTable costTable(const std::string& name, py::handle cost) {
    PyTable table(name, {}, fe::DataTable::ColumnType::Text);
    if (py::isinstance<py::array>(cost)) {
        using ColumnMajor = py::array_t<double, py::array::f_style | py::array::forcecast>;
        const auto matrix = ColumnMajor::ensure(cost);
        if (!matrix || matrix.ndim() != 2) {
            throw py::value_error("option cost: should be a K by K matrix or the path of a file");
        }
        for (py::ssize_t j = 0; j < matrix.shape(1); ++j) {
            table.add(py::array_t<double>(matrix.shape(0), matrix.data() + j * matrix.shape(0)),
                      name + ", column " + std::to_string(j));
        }
        return table;
    }
    const auto rows = cost.cast<std::vector<std::vector<std::string>>>();
    for (std::size_t j = 0; !rows.empty() && j < rows[0].size(); ++j) {
        py::list column;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].size() != rows[0].size()) {
                throw py::value_error(name + ", row " + std::to_string(i) + ": this row has " +
                                      std::to_string(rows[i].size()) +
                                      " fields, but the first has " +
                                      std::to_string(rows[0].size()));
            }
            column.append(rows[i][j]);
        }
        table.add(column, name + ", column " + std::to_string(j));
    }
    return table;
}

// -------------------------------------------------------------- options

// Keyword arguments as the raw options of the table: a Python keyword is
// an option's name with _ for -, and its value has the option's type.
fe::RawOptions rawOptions(const py::dict& options) {
    fe::RawOptions raw;
    for (auto [key, item] : options) {
        const std::string given = py::str(key);
        const auto value = py::reinterpret_borrow<py::object>(item);
        std::string name = given;
        for (char& c : name) c = c == '_' ? '-' : c;
        const fe::OptionRow* row = findOption(name);
        if (row == nullptr || fe::isCommandLineOnly(name) || given.find('-') != std::string::npos) {
            throw py::type_error("fit() has no option '" + given + "'");
        }
        const auto wrong = [&](const char* wanted) {
            const std::string text =
                "option " + given + ": takes " + wanted + ", not " + typeName(value);
            PyErr_SetString(package().badOption.ptr(), text.c_str());
            throw py::error_already_set();
        };
        const bool isBool = PyBool_Check(value.ptr()) ||
                            py::isinstance(value, py::module_::import("numpy").attr("bool_"));
        switch (row->kind) {
            case fe::OptionKind::Flag:
                if (!isBool) wrong("True or False");
                raw.flags[name] = py::cast<bool>(py::bool_(value));
                break;
            case fe::OptionKind::Count:
            case fe::OptionKind::Real:
                if (isBool) wrong("a number");
                if (PyIndex_Check(value.ptr())) {
                    raw.text[name] = py::str(py::int_(value));
                } else if (PyFloat_Check(value.ptr()) ||
                           py::isinstance(value, package().numpyScalar)) {
                    raw.text[name] = py::repr(py::float_(value));
                } else {
                    wrong("a number");
                }
                break;
            case fe::OptionKind::Columns:
            case fe::OptionKind::Tokens:
                if (PyUnicode_Check(value.ptr())) {
                    raw.lists[name] = {value.cast<std::string>()};
                } else if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
                    for (py::handle item : value) {
                        if (!PyUnicode_Check(item.ptr())) wrong("a str or a list of str");
                        raw.lists[name].push_back(item.cast<std::string>());
                    }
                } else {
                    wrong("a str or a list of str");
                }
                break;
            default:
                if (!PyUnicode_Check(value.ptr())) wrong("a str");
                raw.text[name] = value.cast<std::string>();
        }
    }
    return raw;
}

// --------------------------------------------------------------- models

// A model with its tree, read and checked once. It owns host arrays: moved,
// never copied.
struct PyModel {
    fe::Model model;
    fe::TreeView tree;

    PyModel(fe::Model m, fe::TreeView t) : model(std::move(m)), tree(std::move(t)) {}
    PyModel(PyModel&&) = default;
    PyModel(const PyModel&) = delete;
    PyModel& operator=(const PyModel&) = delete;
};

std::pair<PyModel, py::list> fit(const std::vector<std::string>& names, const py::list& columns,
                                 const py::dict& options, const std::string& costName,
                                 py::handle cost) {
    const PyTable table = dataTable(names, columns);
    const fe::RawOptions raw = rawOptions(options);
    fe::Notices notices;
    const fe::TrainingData data = fe::prepareTrainingData(table, raw);
    notices.append(data.notices);
    const fe::Settings settings = fe::fitSettings(data, raw);
    std::vector<double> costs;
    if (!cost.is_none()) {
        costs = fe::readCostMatrix(costTable(costName, cost), data.classes, settings.flag("single"),
                                   notices);
    }
    const numora::Module& module = arbolinModule();
    fe::Grown grown;
    {
        py::gil_scoped_release release;
        grown = fe::growModel(module, data, settings, std::move(costs));
        fe::pruneGrown(grown, module, data, settings, 0, nullptr);
    }
    grown.model.training =
        fe::trainingJson({"", data.rows, data.leftOut, grown.seconds, arbolinModulePath()});
    return {PyModel{std::move(grown.model), std::move(grown.tree)}, noticeList(notices)};
}

PyModel load(const std::string& path) {
    fe::Model model = fe::loadModel(path);
    fe::TreeView tree = fe::readTree(model, path);
    return PyModel{std::move(model), std::move(tree)};
}

// A model from the text of a model file (a pickle holds that text).
PyModel loads(const std::string& text, const std::string& name) {
    fe::Model model = fe::loadModelFromMemory(text, name);
    fe::TreeView tree = fe::readTree(model, name);
    return PyModel{std::move(model), std::move(tree)};
}

// The node (0-based) each row of the data reaches.
std::pair<py::array_t<std::int64_t>, py::list> route(const PyModel& m,
                                                     const std::vector<std::string>& names,
                                                     const py::list& columns,
                                                     std::vector<std::string> missing) {
    const PyTable table = dataTable(names, columns);
    missing.insert(missing.end(), m.model.missing.begin(), m.model.missing.end());
    fe::Notices notices;
    const std::vector<double> x =
        fe::codeRows(m.model, m.tree, table, fe::MissingValues(std::move(missing)), notices);
    const std::vector<std::uint64_t> reached = fe::routeRows(m.tree, x, table.rowCount());
    py::array_t<std::int64_t> nodes(static_cast<py::ssize_t>(reached.size()));
    for (std::size_t i = 0; i < reached.size(); ++i) {
        nodes.mutable_at(i) = static_cast<std::int64_t>(reached[i]);
    }
    return {nodes, noticeList(notices)};
}

// The node each row of a matrix reaches: predictor j in column columns[j].
std::pair<py::array_t<std::int64_t>, py::list> routeMatrix(
    const PyModel& m, const py::array_t<double, py::array::c_style | py::array::forcecast>& x,
    const std::vector<std::uint64_t>& columns) {
    if (x.ndim() != 2) throw py::value_error("the rows to route should be a 2-D array");
    const auto rows = static_cast<std::uint64_t>(x.shape(0));
    const auto width = static_cast<std::uint64_t>(x.shape(1));
    if (columns.size() != m.model.predictors.size()) {
        throw py::value_error("one column is needed for each predictor");
    }
    for (std::uint64_t c : columns) {
        if (c >= width) throw py::value_error("a predictor's column is beyond the matrix");
    }
    fe::Notices notices;
    std::vector<std::uint64_t> reached;
    {
        py::gil_scoped_release release;
        reached = fe::routeMatrix(m.model, m.tree, x.data(), rows, width, columns, notices);
    }
    py::array_t<std::int64_t> nodes(static_cast<py::ssize_t>(rows));
    std::copy(reached.begin(), reached.end(), nodes.mutable_data());
    return {nodes, noticeList(notices)};
}

// The tree as `arbolin show` prints it: "text" or "dot".
std::string render(const PyModel& m, const std::string& format) {
    std::ostringstream out;
    if (format == "dot") {
        fe::renderDot(out, m.model, m.tree);
    } else if (format == "svg") {
        fe::renderSvg(out, m.model, m.tree);
    } else {
        fe::renderText(out, m.model, m.tree);
    }
    return out.str();
}

py::dict outputs(const PyModel& m) {
    py::dict out;
    for (const contract::Argument& a : contract::kOutputs) {
        out[py::str(a.name.data(), a.name.size())] =
            fromHost(m.model.outputs[contract::slot(a.position)].get());
    }
    return out;
}

// Each node's prediction (class code or mean) and class shares (nodes by
// classes), in the precision the shares were grown in.
py::array_t<double> nodeValues(const PyModel& m) {
    py::array_t<double> values(static_cast<py::ssize_t>(m.tree.nodes.size()));
    for (std::size_t i = 0; i < m.tree.nodes.size(); ++i) {
        values.mutable_at(i) = m.tree.nodes[i].value;
    }
    return values;
}

py::array_t<double> nodeShares(const PyModel& m) {
    const std::size_t K = m.model.classes.size();
    py::array_t<double> shares({m.tree.nodes.size(), K});
    for (std::size_t i = 0; i < m.tree.nodes.size(); ++i) {
        for (std::size_t k = 0; k < K; ++k) {
            const double p = m.tree.nodes[i].classProb[k];
            shares.mutable_at(i, k) = m.tree.singleWeights ? static_cast<float>(p) : p;
        }
    }
    return shares;
}

// Each predictor's share of the split gains, in predictor order.
py::array_t<double> importance(const PyModel& m, bool surrogates) {
    const std::vector<double> shares =
        fe::featureImportance(m.tree, m.model.predictors.size(), surrogates);
    py::array_t<double> out(static_cast<py::ssize_t>(shares.size()));
    std::copy(shares.begin(), shares.end(), out.mutable_data());
    return out;
}

// The cost-complexity sequence (kept by a pruned model, else the tree's
// own) as arrays, with the step the tree is.
py::dict pruning(const PyModel& m) {
    const fe::PruningRecord record = fe::pruningRecord(m.model, m.tree);
    const std::size_t n = record.steps.size();
    py::array_t<double> alpha(n), risk(n), cvRisk(n), cvError(n);
    py::array_t<std::int64_t> leaves(n);
    for (std::size_t k = 0; k < n; ++k) {
        const fe::PruningStep& step = record.steps[k];
        alpha.mutable_at(k) = step.alpha;
        leaves.mutable_at(k) = static_cast<std::int64_t>(step.leaves);
        risk.mutable_at(k) = step.risk;
        cvRisk.mutable_at(k) = step.cvRisk;
        cvError.mutable_at(k) = step.cvError;
    }
    py::dict out;
    out["alpha"] = alpha;
    out["leaves"] = leaves;
    out["risk"] = risk;
    out["cv_risk"] = cvRisk;
    out["cv_error"] = cvError;
    out["chosen"] = record.chosen;
    out["folds"] = record.folds;
    out["rule"] = record.rule.empty() ? py::object(py::none()) : py::str(record.rule);
    return out;
}

// The boxes of a drawing: (slot, depth, lines, leaf, left, right).
py::list layout(const PyModel& m) {
    py::list boxes;
    for (const fe::NodeBox& b : fe::layoutTree(m.model, m.tree)) {
        boxes.append(py::make_tuple(b.slot, b.depth, b.lines, b.leaf, b.left, b.right));
    }
    return boxes;
}

// The model pruned to a step of its sequence.
PyModel pruned(const PyModel& m, std::uint64_t step) {
    fe::Model model = fe::pruneToStep(m.model, m.tree, step);
    fe::TreeView tree = fe::readTree(model, "the pruned tree");
    return PyModel{std::move(model), std::move(tree)};
}

// The rows of the option table that Python takes: keyword, default and help.
py::list optionTable() {
    py::list rows;
    for (const fe::OptionRow& row : fe::fitOptions()) {
        if (fe::isCommandLineOnly(row.name)) continue;
        const std::string fallback(row.defaultHelp.empty() ? row.value : row.defaultHelp);
        rows.append(py::make_tuple(keyword(row.name), fallback.empty() ? "none" : fallback,
                                   std::string(row.help)));
    }
    return rows;
}

// The options an estimator takes, derived from the table: keyword, kind,
// the default of a classification and of a regression tree (None when it
// is worked out from the data), and the help text. A default that depends
// only on the task, such as the criterion, is worked out for each task.
py::list estimatorOptions() {
    static const char* const kinds[] = {"count",   "real",    "flag",   "keyword", "code",
                                        "column",  "columns", "tokens", "path"};
    py::list rows;
    for (const fe::OptionRow& row : fe::fitOptions()) {
        if (fe::isCommandLineOnly(row.name)) continue;
        const auto fallback = [&](bool classification) -> py::object {
            if (!row.value.empty()) return py::str(std::string(row.value));
            const bool taskOnly =
                row.kind == fe::OptionKind::Keyword || row.kind == fe::OptionKind::Code;
            if (row.derive == nullptr || !taskOnly) return py::none();
            return py::str(row.derive(fe::DataShape{0, 0, classification}));
        };
        rows.append(py::make_tuple(keyword(row.name), kinds[static_cast<int>(row.kind)],
                                   fallback(true), fallback(false), std::string(row.help)));
    }
    return rows;
}

// The one place where the library's user errors become Python's: a bad
// option is InvalidParameterError, a ValueError.
void translateUserError(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const fe::UserError& e) {
        PyObject* type = e.status() == fe::kExitBadUsage ? package().badOption.ptr()
                                                         : PyExc_ValueError;
        PyErr_SetString(type, pythonWording(e.what()).c_str());
    }
}

}  // namespace

void bindTrees(py::module_& m) {
    py::register_exception_translator(translateUserError);
    py::class_<PyModel>(m, "_Model", "A grown tree and what it takes to apply it (arbolin.Model).")
        .def_property_readonly("predictors",
                               [](const PyModel& p) {
                                   std::vector<std::string> names;
                                   for (const fe::Predictor& each : p.model.predictors)
                                       names.push_back(each.name);
                                   return names;
                               })
        .def_property_readonly("classes",
                               [](const PyModel& p) -> py::object {
                                   if (!p.model.classification) return py::none();
                                   return py::cast(p.model.classes.labels());
                               })
        .def_property_readonly("response", [](const PyModel& p) { return p.model.response; })
        .def_property_readonly(
            "class_numbers",
            [](const PyModel& p) { return p.model.classification && p.model.classes.numbers(); })
        .def(
            "text", [](const PyModel& p) { return fe::modelText(p.model); },
            "The model file's text, as `arbolin fit` writes it.")
        .def("outputs", &outputs)
        .def("node_values", &nodeValues)
        .def("node_shares", &nodeShares)
        .def("route", &route, py::arg("names"), py::arg("columns"), py::arg("missing"))
        .def("route_matrix", &routeMatrix, py::arg("x"), py::arg("columns"))
        .def("render", &render, py::arg("format"))
        .def("importance", &importance, py::arg("surrogates"))
        .def("pruning", &pruning)
        .def("layout", &layout)
        .def("pruned", &pruned, py::arg("step"))
        .def("shape", [](const PyModel& p) {
            const fe::TreeShape shape = fe::treeShape(p.tree);
            return py::make_tuple(shape.nodes, shape.leaves, shape.depth);
        });
    m.def("_fit", &fit, py::arg("names"), py::arg("columns"), py::arg("options"),
          py::arg("cost_name"), py::arg("cost"));
    m.def("_load", &load, py::arg("path"));
    m.def("_loads", &loads, py::arg("text"), py::arg("name"));
    m.def("_estimator_options", &estimatorOptions);
    m.def("_fit_options", &optionTable);
}

}  // namespace arbolin::binding
