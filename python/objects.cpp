#include "objects.h"

#include <functional>
#include <vector>

#include "json_scan.h"

namespace py = pybind11;

namespace someip_python {

namespace {

using capture_lines::JsonNumber;

// Builds bottom-up: a container is filled while open and handed to its parent when it closes. Every
// reference held is released by the destructor, also when a Python call fails half-way.
class Builder : public capture_lines::JsonVisitor {
public:
    explicit Builder(KeyCache& keys) : keys_(keys) {}
    ~Builder() override
    {
        for (const Open& o : open_) {
            Py_XDECREF(o.container);
            Py_XDECREF(o.key);
        }
        Py_XDECREF(root_);
    }

    void beginObject() override { push(PyDict_New()); }
    void beginArray() override { push(PyList_New(0)); }
    void key(std::string_view name) override
    {
        Py_XDECREF(open_.back().key);
        open_.back().key = check(keys_.get(name));
    }
    void endObject() override { close(); }
    void endArray() override { close(); }
    void number(const JsonNumber& n) override
    {
        add(n.kind == JsonNumber::Int    ? PyLong_FromLongLong(n.i)
            : n.kind == JsonNumber::UInt ? PyLong_FromUnsignedLongLong(n.u)
                                         : PyFloat_FromDouble(n.d));
    }
    void string(std::string_view s) override
    {
        add(PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "replace"));
    }
    void boolean(bool b) override { add(b ? Py_NewRef(Py_True) : Py_NewRef(Py_False)); }
    void null() override { add(Py_NewRef(Py_None)); }

    py::object take()
    {
        PyObject* root = root_;
        root_ = nullptr;
        return py::reinterpret_steal<py::object>(root);
    }

private:
    struct Open {
        PyObject* container;
        PyObject* key;  // dicts: the key of the member being read
    };

    static PyObject* check(PyObject* o)
    {
        if (o == nullptr) {
            throw py::error_already_set();
        }
        return o;
    }

    void push(PyObject* container) { open_.push_back({check(container), nullptr}); }

    void close()
    {
        const Open o = open_.back();
        open_.pop_back();
        Py_XDECREF(o.key);
        add(o.container);
    }

    // Takes the reference `value` holds.
    void add(PyObject* value)
    {
        check(value);
        if (open_.empty()) {
            Py_XDECREF(root_);
            root_ = value;
            return;
        }
        Open& top = open_.back();
        const int rc = PyDict_Check(top.container) ? PyDict_SetItem(top.container, top.key, value)
                                                   : PyList_Append(top.container, value);
        Py_DECREF(value);
        if (rc != 0) {
            throw py::error_already_set();
        }
    }

    KeyCache& keys_;
    std::vector<Open> open_;
    PyObject* root_ = nullptr;
};

} // namespace

KeyCache::~KeyCache()
{
    // Left to the process when the interpreter is already gone (a cache held by a module-level object).
    if (Py_IsInitialized() == 0) {
        return;
    }
    for (Slot& s : slots_) {
        Py_XDECREF(s.object);
    }
    for (auto& sequence : sequences_) {
        for (Slot& s : sequence.second) {
            Py_XDECREF(s.object);
        }
    }
}

void KeyCache::select(const void* format)
{
    ordinal_ = 0;
    sequence_ = nullptr;
    if (format == nullptr || (sequences_.size() >= kSequences && sequences_.count(format) == 0)) {
        return;
    }
    sequence_ = &sequences_[format];
}

PyObject* KeyCache::get(std::string_view key)
{
    if (sequence_ == nullptr) {
        return hashed(key);
    }
    const size_t at = ordinal_++;
    if (at < sequence_->size() && (*sequence_)[at].key == key) {
        Py_INCREF((*sequence_)[at].object);
        return (*sequence_)[at].object;
    }
    PyObject* object = hashed(key);
    if (object == nullptr || at > sequence_->size() || at >= kSequenceKeys) {
        return object;
    }
    if (at == sequence_->size()) {
        sequence_->emplace_back();
    }
    Slot& s = (*sequence_)[at];
    Py_XDECREF(s.object);
    Py_INCREF(object);
    s.object = object;
    s.key.assign(key);
    return object;
}

PyObject* KeyCache::hashed(std::string_view key)
{
    Slot& s = slots_[std::hash<std::string_view>()(key) % slots_.size()];
    if (s.object == nullptr || s.key != key) {
        PyObject* made = PyUnicode_DecodeUTF8(key.data(), static_cast<Py_ssize_t>(key.size()), "replace");
        if (made == nullptr) {
            return nullptr;
        }
        Py_XDECREF(s.object);
        s.object = made;
        s.key.assign(key);
    }
    Py_INCREF(s.object);
    return s.object;
}

py::object buildObjects(std::string_view json, KeyCache& keys)
{
    Builder builder(keys);
    if (!capture_lines::walkJson(json, builder)) {
        throw py::value_error("the library's result is not JSON");
    }
    return builder.take();
}

py::str text(std::string_view s)
{
    PyObject* o = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "replace");
    if (o == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(o);
}

} // namespace someip_python
