// capture_frames: the decoded messages of captures as pandas DataFrames, one per message kind, with
// one row per message and one column per header field and per leaf value of the payload
// (capture_lines/payload_leaves.h says how leaves are named). Captures are read and decoded without
// the GIL; each column is then made into one numpy array.
#ifndef SOMEIP_PYTHON_FRAMES_H
#define SOMEIP_PYTHON_FRAMES_H

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"

namespace someip_python {

// A capture that cannot be opened, or is damaged.
struct CaptureError {
    std::string path;
    std::string message;
};

// {name: DataFrame}. `select`: None, or names of frames to build (see the module's documentation).
pybind11::dict captureFrames(const std::vector<std::string>& paths,
                             const std::shared_ptr<const ZQSomeIP::ZQSomeIPFormatSet>& formats,
                             const std::vector<std::string>& select, const std::vector<uint16_t>& ports,
                             const ZQSomeIP::ZQSomeIPPlainOptions& options);

} // namespace someip_python

#endif // SOMEIP_PYTHON_FRAMES_H
