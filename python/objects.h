// Python objects straight from the library's compact JSON results (decoded payloads, capture records):
// dicts, lists, ints, floats, str, bool and None built in C++ as the text is read, with the keys a
// format repeats made once and reused. Python's json module never sees the text.
#ifndef SOMEIP_PYTHON_OBJECTS_H
#define SOMEIP_PYTHON_OBJECTS_H

#include <pybind11/pybind11.h>

#include <array>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace someip_python {

// Member names repeat in every message of a format: each is made into a str once and shared. The keys
// of one format's messages also come in the same order each time, so with a format selected a key is
// first compared with the one that came at the same place last time, a hash lookup only when that
// differs. Bounded whatever the formats hold. Use with the GIL held.
class KeyCache {
public:
    KeyCache() = default;
    KeyCache(const KeyCache&) = delete;
    KeyCache& operator=(const KeyCache&) = delete;
    ~KeyCache();
    // The keys that follow belong to the text of one message of `format` (null: of no known format).
    void select(const void* format);
    // A new reference; null with a Python error set when the str cannot be made.
    PyObject* get(std::string_view key);

private:
    struct Slot {
        std::string key;
        PyObject* object = nullptr;
    };
    PyObject* hashed(std::string_view key);

    static constexpr size_t kSequences = 4096, kSequenceKeys = 4096;
    std::array<Slot, 1024> slots_;
    std::unordered_map<const void*, std::vector<Slot>> sequences_;
    std::vector<Slot>* sequence_ = nullptr;
    size_t ordinal_ = 0;
};

// The value `json` holds, as Python objects. Raises ValueError when the text is not JSON.
pybind11::object buildObjects(std::string_view json, KeyCache& keys);

// Text from the library or a capture as a Python str. Capture texts (service discovery configuration
// strings) may hold bytes that are not UTF-8; those become U+FFFD rather than failing the record.
pybind11::str text(std::string_view s);

} // namespace someip_python

#endif // SOMEIP_PYTHON_OBJECTS_H
