#include "frames.h"

#include <pybind11/numpy.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <unordered_map>

#include "ZQSomeIPCapture.h"
#include "objects.h"
#include "payload_leaves.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace someip_python {

namespace {

namespace cap = ZQSomeIP::capture;
using capture_lines::JsonNumber;
using capture_lines::Leaf;

// One value of a column as read, before the column's type is known.
struct Cell {
    enum Kind : uint8_t { Missing, Int, UInt, Real, Bool, Text, List, Null } kind = Missing;
    union {
        int64_t i;
        uint64_t u;
        double d;
        uint32_t text;  // Text and List: index into the column's texts
    };
    Cell() : i(0) {}
};

struct Column {
    std::string name;
    std::vector<Cell> cells;
    std::vector<std::string> texts;

    void add(Cell c, std::string_view s = {})
    {
        if (c.kind == Cell::Text || c.kind == Cell::List) {
            c.text = static_cast<uint32_t>(texts.size());
            texts.emplace_back(s);
        }
        cells.push_back(c);
    }
    void addInt(int64_t v)
    {
        Cell c;
        c.kind = Cell::Int;
        c.i = v;
        add(c);
    }
    void addText(std::string_view s)
    {
        Cell c;
        c.kind = Cell::Text;
        add(c, s);
    }
};

// The header members of a capture line, in its order.
const char* const kHeaderColumns[] = {"time", "frame", "src", "dst", "service", "method", "client", "session",
                                      "interface_version", "message_type", "return_code"};
constexpr size_t kHeaderCount = sizeof(kHeaderColumns) / sizeof(kHeaderColumns[0]);

// The rows of one message kind. Consecutive messages of one format usually name the same leaves in the
// same order, so each row first tries the previous row's columns before looking a path up.
class Table : public capture_lines::LeafVisitor {
public:
    explicit Table(std::string name) : name_(std::move(name))
    {
        for (const char* h : kHeaderColumns) {
            columns_.push_back(Column{h, {}, {}});
        }
    }

    void row(const cap::Message& m, const ZQSomeIP::ZQSomeIPPlainMethod& method, std::string_view json)
    {
        columns_[0].addInt(m.seconds * 1000000000LL + m.nanoseconds);
        columns_[1].addInt(static_cast<int64_t>(m.frame));
        columns_[2].addText(m.source.text());
        columns_[3].addText(m.destination.text());
        const cap::Header& h = m.header;
        const int64_t header[] = {h.service, h.method, h.client, h.session, h.interface_version,
                                  h.message_type, h.return_code};
        for (size_t k = 0; k < 7; ++k) {
            columns_[4 + k].addInt(header[k]);
        }
        position_ = 0;
        capture_lines::flattenPayload(method, json, *this);
        ++rows_;
        for (Column& c : columns_) {
            c.cells.resize(rows_);  // leaves this message does not have
        }
    }

    void leaf(const Leaf& leaf) override
    {
        Column& c = columns_[column(leaf.path)];
        if (c.cells.size() > rows_) {
            return;  // a path seen twice in one message keeps its first value
        }
        Cell cell;
        switch (leaf.kind) {
        case Leaf::Number:
            cell.kind = leaf.number.kind == JsonNumber::Int ? Cell::Int
                        : leaf.number.kind == JsonNumber::UInt ? Cell::UInt : Cell::Real;
            if (cell.kind == Cell::Int) {
                cell.i = leaf.number.i;
            } else if (cell.kind == Cell::UInt) {
                cell.u = leaf.number.u;
            } else {
                cell.d = leaf.number.d;
            }
            break;
        case Leaf::Bool:
            cell.kind = Cell::Bool;
            cell.i = leaf.boolean ? 1 : 0;
            break;
        case Leaf::String: cell.kind = Cell::Text; break;
        case Leaf::List: cell.kind = Cell::List; break;
        case Leaf::Null: cell.kind = Cell::Null; break;
        }
        c.add(cell, leaf.text);
    }

    const std::string& name() const { return name_; }
    size_t rows() const { return rows_; }
    const std::vector<Column>& columns() const { return columns_; }

private:
    size_t column(std::string_view path)
    {
        const size_t at = position_++;
        if (at < recent_.size() && recent_[at].first == path) {
            return recent_[at].second;
        }
        std::string key(path);
        auto found = index_.find(key);
        if (found == index_.end()) {
            found = index_.emplace(key, columns_.size()).first;
            // A parameter named like a header field must not take its column.
            const bool taken = std::find(std::begin(kHeaderColumns), std::end(kHeaderColumns), key) != std::end(kHeaderColumns);
            columns_.push_back(Column{taken ? "payload." + key : key, std::vector<Cell>(rows_), {}});
        }
        if (at >= recent_.size()) {
            recent_.resize(at + 1);
        }
        recent_[at] = {std::move(key), found->second};
        return found->second;
    }

    std::string name_;
    std::vector<Column> columns_;
    std::unordered_map<std::string, size_t> index_;
    std::vector<std::pair<std::string, size_t>> recent_;  // the previous row's paths, in order
    size_t position_ = 0;
    size_t rows_ = 0;
};

std::string hexId(int v)
{
    char text[8];
    snprintf(text, sizeof(text), "0x%04x", static_cast<unsigned>(v) & 0xFFFFu);
    return text;
}

// "Service.Method", from the format's names or the IDs in hex, and the direction for replies: a method's
// request and response carry different parameters, so they are different tables.
std::string suffixOf(int messageType)
{
    const int type = messageType & ~0x20;
    return type == 0x80 ? ":response" : type == 0x81 ? ":error" : "";
}

struct Kind {
    std::string name;  // the table's key
    bool selected = false;
};

class Collector {
public:
    Collector(const ZQSomeIP::ZQSomeIPFormatSet& set, const std::vector<std::string>& select,
              const ZQSomeIP::ZQSomeIPPlainOptions& options)
        : set_(set), select_(select), options_(options)
    {
        options_.pretty = false;
    }

    // False with `error` set when the capture cannot be opened or is damaged.
    bool read(const std::string& path, const std::vector<uint16_t>& ports, std::string& error)
    {
        cap::Options o;
        o.ports = ports;
        auto reader = cap::CaptureReader::open(path, o, error);
        if (!reader) {
            return false;
        }
        cap::Message m;
        while (reader->next(m)) {
            if (m.ok() && m.has_header && m.sd == nullptr) {
                message(m);
            }
        }
        error = reader->status().error;
        return !reader->status().failed;
    }

    std::map<std::string, Table>& tables() { return tables_; }

private:
    void message(const cap::Message& m)
    {
        const cap::Header& h = m.header;
        const ZQSomeIP::ZQSomeIPPlainMethod* method = set_.find(h.service, h.method, h.message_type, h.interface_version);
        if (method == nullptr) {
            return;
        }
        const uint64_t id = (uint64_t(h.service) << 24) | (uint64_t(h.method) << 8) | (h.message_type & ~0x20u);
        auto found = kinds_.find(id);
        if (found == kinds_.end()) {
            found = kinds_.emplace(id, kind(*method, h)).first;
        }
        if (!found->second.selected) {
            return;
        }
        if (!ZQSomeIP::plainDecode(*method, m.payload, m.payload_size, json_, options_).ok()) {
            return;
        }
        auto table = tables_.find(found->second.name);
        if (table == tables_.end()) {
            table = tables_.emplace(found->second.name, Table(found->second.name)).first;
        }
        table->second.row(m, *method, json_);
    }

    Kind kind(const ZQSomeIP::ZQSomeIPPlainMethod& method, const cap::Header& h) const
    {
        const std::string suffix = suffixOf(h.message_type);
        const std::string ids = hexId(h.service) + "." + hexId(h.method);
        const std::string names = (method.serviceName.empty() ? hexId(h.service) : method.serviceName) + "." +
                                  (method.methodName.empty() ? hexId(h.method) : method.methodName);
        Kind k{names + suffix, select_.empty()};
        for (const std::string& s : select_) {
            k.selected = k.selected || s == names || s == ids || s == names + suffix || s == ids + suffix;
        }
        return k;
    }

    const ZQSomeIP::ZQSomeIPFormatSet& set_;
    const std::vector<std::string>& select_;
    ZQSomeIP::ZQSomeIPPlainOptions options_;
    std::unordered_map<uint64_t, Kind> kinds_;
    std::map<std::string, Table> tables_;
    std::string json_;
};

// What a column's cells hold decides its array: int64, uint64, float64 (numbers with gaps or
// fractions, gaps as NaN), bool, or object (text, lists, null, mixtures; gaps as None).
struct Census {
    size_t counts[8] = {};
    bool negative = false;
    explicit Census(const Column& c)
    {
        for (const Cell& cell : c.cells) {
            ++counts[cell.kind];
            negative = negative || (cell.kind == Cell::Int && cell.i < 0);
        }
    }
    size_t of(Cell::Kind k) const { return counts[k]; }
    size_t others(std::initializer_list<Cell::Kind> kinds) const
    {
        size_t n = 0;
        for (size_t k = 0; k < 8; ++k) {
            n += std::find(kinds.begin(), kinds.end(), static_cast<Cell::Kind>(k)) == kinds.end() ? counts[k] : 0;
        }
        return n;
    }
};

template <typename T, typename F>
py::array numbers(const Column& c, F value)
{
    py::array_t<T> out(static_cast<py::ssize_t>(c.cells.size()));
    T* data = out.mutable_data();
    for (size_t r = 0; r < c.cells.size(); ++r) {
        data[r] = value(c.cells[r]);
    }
    return std::move(out);
}

double asDouble(const Cell& c)
{
    switch (c.kind) {
    case Cell::Int: return static_cast<double>(c.i);
    case Cell::UInt: return static_cast<double>(c.u);
    case Cell::Real: return c.d;
    default: return std::numeric_limits<double>::quiet_NaN();
    }
}

py::object objects(const Column& c, KeyCache& keys)
{
    py::array out = py::module_::import("numpy").attr("empty")(c.cells.size(), "dtype"_a = "object");
    auto** data = static_cast<PyObject**>(out.mutable_data());
    for (size_t r = 0; r < c.cells.size(); ++r) {
        const Cell& cell = c.cells[r];
        py::object v;
        switch (cell.kind) {
        case Cell::Int: v = py::int_(cell.i); break;
        case Cell::UInt: v = py::int_(cell.u); break;
        case Cell::Real: v = py::float_(cell.d); break;
        case Cell::Bool: v = py::bool_(cell.i != 0); break;
        case Cell::Text: v = text(c.texts[cell.text]); break;
        case Cell::List: v = buildObjects(c.texts[cell.text], keys); break;
        default: v = py::none(); break;
        }
        Py_XDECREF(data[r]);
        data[r] = v.release().ptr();
    }
    return std::move(out);
}

py::object array(const Column& c, KeyCache& keys)
{
    const Census n(c);
    const size_t rows = c.cells.size();
    if (n.of(Cell::Int) == rows) {
        return numbers<int64_t>(c, [](const Cell& x) { return x.i; });
    }
    if (n.of(Cell::UInt) > 0 && n.of(Cell::UInt) + n.of(Cell::Int) == rows && !n.negative) {
        return numbers<uint64_t>(c, [](const Cell& x) { return x.kind == Cell::Int ? uint64_t(x.i) : x.u; });
    }
    if (n.others({Cell::Int, Cell::UInt, Cell::Real, Cell::Missing}) == 0 && n.of(Cell::Missing) < rows) {
        return numbers<double>(c, asDouble);
    }
    if (n.of(Cell::Bool) == rows) {
        return numbers<bool>(c, [](const Cell& x) { return x.i != 0; });
    }
    return objects(c, keys);
}

py::object frame(const Table& t, const py::object& pandas, KeyCache& keys)
{
    py::dict columns;
    for (const Column& c : t.columns()) {
        py::object a = array(c, keys);
        if (&c == &t.columns().front()) {
            a = a.attr("view")("datetime64[ns]");  // the time, in nanoseconds since the epoch
        }
        columns[text(c.name)] = a;
    }
    return pandas.attr("DataFrame")(columns);
}

} // namespace

py::dict captureFrames(const std::vector<std::string>& paths, const std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>& formats,
                       const std::vector<std::string>& select, const std::vector<uint16_t>& ports,
                       const ZQSomeIP::ZQSomeIPPlainOptions& options)
{
    py::object pandas;
    try {
        pandas = py::module_::import("pandas");
    } catch (py::error_already_set& e) {
        if (!e.matches(PyExc_ImportError)) {
            throw;
        }
        throw py::import_error("capture_frames needs pandas and numpy (Debian: python3-pandas python3-numpy)");
    }
    Collector collector(*formats, select, options);
    for (const std::string& path : paths) {
        std::string error;
        bool ok = false;
        {
            py::gil_scoped_release nogil;
            ok = collector.read(path, ports, error);
        }
        if (!ok) {
            throw CaptureError{path, error};
        }
    }
    KeyCache keys;
    py::dict out;
    for (auto& [name, table] : collector.tables()) {
        out[text(name)] = frame(table, pandas, keys);
    }
    return out;
}

} // namespace someip_python
