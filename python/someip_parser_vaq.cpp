// The Python module someip_parser_vaq: a format set loaded once, plain and classic conversions, and
// captures read into one dict per record (the lines of `someip-json capture`, parsed).
//
// Conversions release the GIL while the library works, so Python threads decode in parallel; the
// plain calls share one immutable ZQSomeIPFormatSet, the classic ones take turns on one
// ZQSomeIPParserAPI. Results become Python objects in C++ as the library's compact text is read
// (objects.h): the text is exact (integers of every width, floats that read back to the same bits), and
// one reader keeps dicts and the tool's lines identical.
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZQSomeIPCapture.h"
#include "ZQSomeIPImport.h"
#include "ZQSomeIPParserAPI.h"
#include "ZQSomeIPVersion.h"
#include "capture_lines.h"
#include "compiled/ZQSomeIPFormatSet.h"
#include "frames.h"
#include "objects.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace {

using someip_python::KeyCache;
using someip_python::buildObjects;
using someip_python::text;
using ZQSomeIP::ZQSomeIPFormatSet;
using ZQSomeIP::ZQSomeIPPlainError;
using ZQSomeIP::ZQSomeIPPlainStatus;
namespace cap = ZQSomeIP::capture;

// json.dumps and the module's Error class. Held for the life of the process and never
// released: dropping them while the interpreter shuts down would touch freed objects.
py::handle g_dumps;
py::handle g_error;

const char* const kErrorClass = R"py(
class Error(Exception):
    """A failed load, lookup, conversion or capture read.

    code     short name: "truncated", "unknown_message", "bad_json", "file_error", ...
    message  one line, naming the parameter where there is one
    offset   decode errors: the byte of the payload where the problem lies; otherwise None
    path     encode errors: the JSON path ("$.waypoints[1].x"); loading and capture errors: the file
    """

    def __init__(self, code, message, offset=None, path=None):
        super().__init__(code, message, offset, path)
        self.code = code
        self.message = message
        self.offset = offset
        self.path = path

    def __str__(self):
        if self.offset is not None:
            return "%s: %s (at byte %d)" % (self.code, self.message, self.offset)
        if self.path and self.path not in self.message:
            return "%s: %s (at %s)" % (self.code, self.message, self.path)
        return "%s: %s" % (self.code, self.message)
)py";

py::object makeError(std::string_view code, std::string_view message, py::object offset, py::object path)
{
    return g_error(text(code), text(message), offset, path);
}

// Where an error lies, as ZQSomeIPPlainStatus::toJson() tells it: a path when there is one, else the offset.
py::object statusError(const ZQSomeIPPlainStatus& s)
{
    const char* code = ZQSomeIP::plainErrorName(s.code);
    if (s.path.empty()) {
        return makeError(code, s.message, py::int_(s.offset), py::none());
    }
    return makeError(code, s.message, py::none(), text(s.path));
}

[[noreturn]] void raise(py::object error)
{
    PyErr_SetObject(g_error.ptr(), error.ptr());
    throw py::error_already_set();
}

// The keyword arguments enum_style, scaled and strict as the codec's options; a bad value is a ValueError.
ZQSomeIP::ZQSomeIPPlainOptions plainOptions(std::string_view enumStyle, std::string_view scaled, bool strict)
{
    ZQSomeIP::ZQSomeIPPlainOptions options;
    if (!ZQSomeIP::parseEnumStyle(enumStyle, options.enumStyle)) {
        throw py::value_error("enum_style: expected 'name', 'value' or 'both', not '" + std::string(enumStyle) + "'");
    }
    if (!ZQSomeIP::parseScaledStyle(scaled, options.scaled)) {
        throw py::value_error("scaled: expected 'raw', 'physical' or 'both', not '" + std::string(scaled) + "'");
    }
    options.strict = strict;
    return options;
}

// The bytes of any object with a contiguous buffer (bytes, bytearray, memoryview, array, numpy), without
// a copy. The object cannot be resized while the view is held. Create and destroy with the GIL held.
class ByteView {
public:
    explicit ByteView(py::handle object)
    {
        if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_SIMPLE) != 0) {
            throw py::error_already_set();
        }
        held_ = true;
    }
    ByteView(ByteView&& other) noexcept : view_(other.view_), held_(other.held_) { other.held_ = false; }
    ByteView(const ByteView&) = delete;
    ByteView& operator=(const ByteView&) = delete;
    ByteView& operator=(ByteView&&) = delete;
    ~ByteView()
    {
        if (held_) {
            PyBuffer_Release(&view_);
        }
    }
    const uint8_t* data() const { return static_cast<const uint8_t*>(view_.buf); }
    size_t size() const { return static_cast<size_t>(view_.len); }

private:
    Py_buffer view_{};
    bool held_ = false;
};

class Formats {
public:
    explicit Formats(std::string path) : path_(std::move(path))
    {
        ZQSomeIPPlainStatus status;
        {
            py::gil_scoped_release nogil;
            set_ = ZQSomeIPFormatSet::load(path_, status);
        }
        if (!set_) {
            raise(statusError(status));
        }
    }

    // A set loaded from one document's text: `name` stands for its file in messages and in path.
    Formats(std::string name, const std::string& text) : path_(std::move(name))
    {
        ZQSomeIPPlainStatus status;
        {
            py::gil_scoped_release nogil;
            set_ = ZQSomeIPFormatSet::loadText(text, path_, status);
        }
        if (!set_) {
            raise(statusError(status));
        }
    }

    const std::string& path() const { return path_; }
    size_t methodCount() const { return set_->methodCount(); }
    const std::shared_ptr<const ZQSomeIPFormatSet>& set() const { return set_; }

    py::object decode(int service, int method, int type, py::handle data, std::string_view enumStyle,
                      std::string_view scaled, bool strict) const
    {
        const auto options = plainOptions(enumStyle, scaled, strict);
        std::string json;
        ZQSomeIPPlainStatus status;
        {
            ByteView bytes(data);
            py::gil_scoped_release nogil;
            status = ZQSomeIP::plainDecode(*set_, service, method, type, bytes.data(), bytes.size(), json, options);
        }
        if (!status.ok()) {
            raise(statusError(status));
        }
        keys_.select(set_->find(service, method, type));
        return buildObjects(json, keys_);
    }

    py::list decodeMany(py::iterable items, bool returnErrors, std::string_view enumStyle, std::string_view scaled,
                        bool strict) const
    {
        const auto options = plainOptions(enumStyle, scaled, strict);
        struct Job {
            int service, method, type;
            ByteView bytes;
            std::string json;
            ZQSomeIPPlainStatus status;
        };
        std::vector<Job> jobs;
        for (py::handle item : items) {
            if (!py::isinstance<py::sequence>(item) || py::len(item) != 4) {
                throw py::type_error("decode_many: each item is (service, method, type, data)");
            }
            const auto fields = py::reinterpret_borrow<py::sequence>(item);
            jobs.push_back(Job{fields[0].cast<int>(), fields[1].cast<int>(), fields[2].cast<int>(),
                               ByteView(fields[3]), {}, {}});
        }
        {
            py::gil_scoped_release nogil;
            for (Job& j : jobs) {
                j.status = ZQSomeIP::plainDecode(*set_, j.service, j.method, j.type, j.bytes.data(), j.bytes.size(),
                                                 j.json, options);
            }
        }
        py::list out(jobs.size());
        for (size_t i = 0; i < jobs.size(); ++i) {
            if (jobs[i].status.ok()) {
                keys_.select(set_->find(jobs[i].service, jobs[i].method, jobs[i].type));
                out[i] = buildObjects(jobs[i].json, keys_);
                continue;
            }
            py::object error = statusError(jobs[i].status);
            error.attr("index") = i;
            if (!returnErrors) {
                raise(error);
            }
            out[i] = error;
        }
        return out;
    }

    py::bytes encode(int service, int method, int type, py::handle value, std::string_view scaled) const
    {
        const auto options = plainOptions("name", scaled, false);
        // A str is taken as the JSON text itself; anything else is written as JSON first.
        const std::string json = py::isinstance<py::str>(value)
            ? value.cast<std::string>()
            : g_dumps(value, "ensure_ascii"_a = false, "allow_nan"_a = false,
                      "separators"_a = py::make_tuple(",", ":")).cast<std::string>();
        std::vector<uint8_t> payload;
        ZQSomeIPPlainStatus status;
        {
            py::gil_scoped_release nogil;
            status = ZQSomeIP::plainEncode(*set_, service, method, type, json, payload, options);
        }
        if (!status.ok()) {
            raise(statusError(status));
        }
        return py::bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
    }

    py::str decodeClassic(int service, int method, int type, py::handle data)
    {
        std::vector<unsigned char> payload;
        {
            ByteView bytes(data);
            payload.assign(bytes.data(), bytes.data() + bytes.size());  // the classic API takes a vector
        }
        std::string json;
        const auto failure = classic(service, method, type, [&](ZQSomeIP::ZQSomeIPParserAPI& api) {
            return api.deserializebyMethodID(service, method, type, payload, json) == 0;
        }, "decode failed: the payload does not match the method format");
        if (failure) {
            raise(*failure);
        }
        return text(json);
    }

    py::bytes encodeClassic(int service, int method, int type, std::string json)
    {
        std::vector<unsigned char> payload;
        const auto failure = classic(service, method, type, [&](ZQSomeIP::ZQSomeIPParserAPI& api) {
            return api.serializebyMethodID(service, method, type, json, payload) == 0;
        }, "encode failed: the parameter list could not be written");
        if (failure) {
            raise(*failure);
        }
        return py::bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
    }

    py::str methodFormat(int service, int method, int type)
    {
        std::string format;
        const auto failure = classic(service, method, type, [&](ZQSomeIP::ZQSomeIPParserAPI& api) {
            return api.getMethodFormatbyID(service, method, type, format) == 0;
        }, "");
        if (failure) {
            raise(*failure);
        }
        return text(format);
    }

private:
    // Runs `call` on the classic API without the GIL, one thread at a time (the API keeps state between
    // calls). The API is loaded on first use: most programs never need it. Returns the error to raise,
    // if any: unknown_message when no format answers, else "failed" with `what`.
    template <typename Call>
    std::optional<py::object> classic(int service, int method, int type, Call call, const char* what)
    {
        bool ok = false, loaded = true, known = true;
        std::string exception;
        {
            py::gil_scoped_release nogil;
            std::lock_guard<std::mutex> lock(classicMutex_);
            if (!classic_) {
                classic_ = std::make_unique<ZQSomeIP::ZQSomeIPParserAPI>();
                if (classic_->loadFormatJson(path_) != 0) {
                    classic_.reset();
                    loaded = false;
                }
            }
            if (loaded) {
                try {
                    ok = call(*classic_);
                } catch (const std::exception& e) {
                    // The classic API lets errors of its JSON and text conversion dependencies through.
                    exception = e.what();
                }
                if (!ok && exception.empty()) {
                    std::string format;
                    known = classic_->getMethodFormatbyID(service, method, type, format) == 0;
                }
            }
        }
        if (ok) {
            return std::nullopt;
        }
        if (!loaded) {
            return makeError("file_error", "the classic API cannot load the format descriptions", py::none(),
                             text(path_));
        }
        if (!exception.empty()) {
            return makeError("failed", "conversion failed: " + exception, py::none(), py::none());
        }
        if (!known) {
            return makeError("unknown_message",
                             ZQSomeIP::plainUnknownMessageText(service, method, type),
                             py::none(), py::none());
        }
        return makeError("failed", what, py::none(), py::none());
    }

    std::string path_;
    std::shared_ptr<const ZQSomeIPFormatSet> set_;
    mutable KeyCache keys_;  // used with the GIL held
    std::mutex classicMutex_;
    std::unique_ptr<ZQSomeIP::ZQSomeIPParserAPI> classic_;
};

// The records of one capture, read a chunk at a time without the GIL: dicts, or with `lines` the tool's
// lines themselves (str, without the line end). Raises Error ("capture_damaged", path = the file) after
// the last record when the file is damaged or cut short, where the tool exits with status 1.
class CaptureIterator {
public:
    static constexpr size_t kChunk = 512;

    CaptureIterator(std::string path, const Formats& formats, std::vector<uint16_t> ports, bool lines,
                    const ZQSomeIP::ZQSomeIPPlainOptions& style)
        : path_(std::move(path)), set_(formats.set()), decoder_(*set_, style), writer_(decoder_), lines_(lines)
    {
        cap::Options options;
        options.ports = std::move(ports);
        std::string error;
        {
            py::gil_scoped_release nogil;
            reader_ = cap::CaptureReader::open(path_, options, error);
        }
        if (!reader_) {
            raise(makeError("file_error", error, py::none(), text(path_)));
        }
    }

    py::object next()
    {
        // The chunk is filled without the GIL, so another thread could step in; Python refuses the same
        // for its generators.
        if (busy_) {
            throw py::value_error("read_capture: iterator already executing");
        }
        while (position_ >= chunk_.size()) {
            if (ended_) {
                if (!reported_ && reader_->status().failed) {
                    reported_ = true;
                    raise(makeError("capture_damaged", reader_->status().error, py::none(), text(path_)));
                }
                throw py::stop_iteration();
            }
            fill();
        }
        return chunk_[position_++];
    }

    py::dict stats() const
    {
        const cap::Statistics& s = reader_->status().stats;
        py::dict out;
        out["frames"] = s.frames;
        out["messages"] = s.messages;
        out["lines"] = count_.lines;
        out["decoded"] = count_.decoded;
        out["failed"] = count_.lines - count_.decoded;
        return out;
    }

private:
    void fill()
    {
        busy_ = true;
        text_.assign(lines_ ? "" : "[");
        ends_.clear();
        {
            py::gil_scoped_release nogil;
            while (ends_.size() < kChunk && reader_->next(message_)) {
                if (!lines_ && !ends_.empty()) {
                    text_ += ',';
                }
                count_.decoded += writer_.append(message_, text_).decoded ? 1 : 0;
                ends_.push_back(text_.size());
            }
        }
        busy_ = false;
        count_.lines += ends_.size();
        ended_ = ends_.size() < kChunk;
        position_ = 0;
        if (!lines_) {
            text_ += ']';
            chunk_ = buildObjects(text_, keys_);
            return;
        }
        chunk_ = py::list(ends_.size());
        size_t start = 0;
        for (size_t i = 0; i < ends_.size(); ++i) {
            chunk_[i] = text(std::string_view(text_).substr(start, ends_[i] - start));
            start = ends_[i];
        }
    }

    std::string path_;
    std::shared_ptr<const ZQSomeIPFormatSet> set_;
    capture_lines::PlainPayloadDecoder decoder_;
    capture_lines::CaptureLineWriter writer_;
    const bool lines_;
    std::unique_ptr<cap::CaptureReader> reader_;
    cap::Message message_;
    std::string text_;
    std::vector<size_t> ends_;  // where each record's text ends in text_
    py::list chunk_;
    KeyCache keys_;
    size_t position_ = 0;
    struct {
        uint64_t lines = 0, decoded = 0;
    } count_;
    bool ended_ = false;
    bool reported_ = false;
    bool busy_ = false;
};

// The module's parts: formats and their codecs, the importer, captures.
void defineFormats(py::module_& m)
{
    py::class_<Formats, std::shared_ptr<Formats>>(m, "Formats",
        "Format descriptions loaded once from a file or a directory tree of *.json files. Plain calls share\n"
        "the loaded set between threads; classic calls take turns on one classic API.")
        .def(py::init<std::string>(), "path"_a)
        .def_static("from_text",
                    [](const std::string& text, std::string name) {
                        return std::make_shared<Formats>(std::move(name), text);
                    },
                    "text"_a, "name"_a = "<text>",
                    "Formats from one format document given as text (what import_descriptions returns)")
        .def_property_readonly("path", &Formats::path)
        .def("__len__", &Formats::methodCount, "The number of method formats loaded")
        .def("__repr__", [](const Formats& f) {
            return "<someip_parser_vaq.Formats '" + f.path() + "', " + std::to_string(f.methodCount()) + " methods>";
        })
        .def("decode", &Formats::decode, "service"_a, "method"_a, "type"_a, "data"_a, py::kw_only(),
             "enum_style"_a = "name", "scaled"_a = "raw", "strict"_a = false,
             "Payload (bytes, bytearray, memoryview, ...) -> dict in the plain form. enum_style: 'name',\n"
             "'value' or 'both'; scaled: 'raw', 'physical' or 'both'; strict: bytes the format does not know\n"
             "fail (trailing_bytes, length_mismatch) instead of being skipped.")
        .def("decode_many", &Formats::decodeMany, "items"_a, "return_errors"_a = false, py::kw_only(),
             "enum_style"_a = "name", "scaled"_a = "raw", "strict"_a = false,
             "[(service, method, type, data), ...] -> [dict, ...], decoded without the GIL. A failure raises\n"
             "Error (with .index); with return_errors=True the Error takes the failed item's place instead.\n"
             "enum_style, scaled, strict: as for decode.")
        .def("encode", &Formats::encode, "service"_a, "method"_a, "type"_a, "value"_a, py::kw_only(),
             "scaled"_a = "raw",
             "dict in the plain form (or its JSON text) -> payload bytes. scaled: scaled numbers given as\n"
             "'raw' values, 'physical' ones (rounded to the nearest raw value) or 'both' objects.")
        .def("decode_classic", &Formats::decodeClassic, "service"_a, "method"_a, "type"_a, "data"_a,
             "Payload -> the classic parameter list with every Value filled in (JSON text)")
        .def("encode_classic", &Formats::encodeClassic, "service"_a, "method"_a, "type"_a, "json"_a,
             "Classic parameter list with values (JSON text) -> payload bytes")
        .def("method_format", &Formats::methodFormat, "service"_a, "method"_a, "type"_a,
             "The classic parameter list of a message (JSON text)");
}

void defineImport(py::module_& m)
{
    m.def("import_descriptions",
          [](std::vector<std::string> paths, std::string_view dialect) {
              ZQSomeIP::ZQSomeIPImportOptions options;
              if (dialect == "fibex") {
                  options.dialect = ZQSomeIP::ZQSomeIPImportDialect::Fibex;
              } else if (dialect == "arxml") {
                  options.dialect = ZQSomeIP::ZQSomeIPImportDialect::Arxml;
              } else if (dialect != "auto") {
                  throw py::value_error("dialect: expected 'auto', 'fibex' or 'arxml', not '" + std::string(dialect) + "'");
              }
              ZQSomeIP::ZQSomeIPImportResult result;
              {
                  py::gil_scoped_release nogil;
                  result = ZQSomeIP::importDescriptions(paths, options);
              }
              if (!result.ok) {
                  raise(makeError("import_failed", result.error, py::none(), py::none()));
              }
              KeyCache keys;
              return py::make_tuple(text(result.formatText), buildObjects(result.report.toJson(), keys));
          },
          "paths"_a, py::kw_only(), "dialect"_a = "auto",
          "FIBEX 4 or AUTOSAR ARXML description files -> (format document text, report dict). The text loads\n"
          "with Formats.from_text; the report counts what was imported and lists every element skipped,\n"
          "approximated, unresolved or duplicated with its file, line and path. dialect: 'auto' (told by the\n"
          "root element), 'fibex' or 'arxml'. An input that is no description raises Error ('import_failed').");
}

void defineCapture(py::module_& m)
{
    py::class_<CaptureIterator>(m, "CaptureIterator")
        .def("__iter__", [](CaptureIterator& it) -> CaptureIterator& { return it; })
        .def("__next__", &CaptureIterator::next)
        .def_property_readonly("stats", &CaptureIterator::stats,
                               "Counts so far: frames and SOME/IP messages read; lines (records) yielded or\n"
                               "about to be, how many of them decoded (payload or service discovery) and failed");

    m.def("capture_frames",
          [](py::object paths, const Formats& formats, std::optional<std::vector<std::string>> select,
             std::optional<std::vector<uint16_t>> ports, std::string_view enumStyle, std::string_view scaled,
             bool strict) {
              const std::vector<std::string> files = py::isinstance<py::str>(paths)
                  ? std::vector<std::string>{paths.cast<std::string>()}
                  : paths.cast<std::vector<std::string>>();
              try {
                  return someip_python::captureFrames(files, formats.set(), select ? *select : std::vector<std::string>(),
                                                      ports ? *ports : std::vector<uint16_t>(),
                                                      plainOptions(enumStyle, scaled, strict));
              } catch (const someip_python::CaptureError& e) {
                  raise(makeError("file_error", e.message, py::none(), text(e.path)));
              }
          },
          "paths"_a, "formats"_a, "select"_a = py::none(), py::kw_only(), "ports"_a = py::none(),
          "enum_style"_a = "name", "scaled"_a = "raw", "strict"_a = false,
          "Captures (a path or a list of paths) -> {name: pandas.DataFrame}: one frame per message kind,\n"
          "named 'Service.Method' (names from the formats, else IDs as '0x1234.0x8001'), with ':response'\n"
          "or ':error' for replies. One row per decoded message; columns: time (datetime64[ns]), frame,\n"
          "src, dst, the header fields, then one per payload leaf (members joined with dots, fixed array\n"
          "elements numbered 'a.0', vectors kept as lists). select: names (with or without the suffix,\n"
          "names or IDs) of the frames wanted. Needs pandas and numpy.");

    m.def("read_capture",
          [](std::string path, const Formats& formats, std::optional<std::vector<uint16_t>> ports, bool lines,
             std::string_view enumStyle, std::string_view scaled, bool strict) {
              return std::make_unique<CaptureIterator>(std::move(path), formats,
                                                       ports ? std::move(*ports) : std::vector<uint16_t>(), lines,
                                                       plainOptions(enumStyle, scaled, strict));
          },
          "path"_a, "formats"_a, "ports"_a = py::none(), "lines"_a = false, py::kw_only(), "enum_style"_a = "name",
          "scaled"_a = "raw", "strict"_a = false,
          "Iterates over the records of a pcap or pcapng file: one dict per SOME/IP message or capture error,\n"
          "the same content as the lines of `someip-json capture`. ports: the UDP/TCP ports carrying SOME/IP\n"
          "(default: any port whose datagrams have consistent SOME/IP headers). lines=True yields the lines\n"
          "themselves (str, no line end) instead of dicts. enum_style, scaled, strict: as for Formats.decode.");
}

} // namespace

PYBIND11_MODULE(someip_parser_vaq, m)
{
    m.doc() = "SOME/IP payloads between their binary form and Python objects, described by format files";
    m.attr("__version__") = SOMEIP_PARSER_VAQ_VERSION_STRING;

    const py::module_ json = py::module_::import("json");
    g_dumps = py::object(json.attr("dumps")).release();
    py::exec(kErrorClass, m.attr("__dict__"));
    g_error = py::object(m.attr("Error")).release();

    defineFormats(m);
    defineImport(m);
    defineCapture(m);
}
