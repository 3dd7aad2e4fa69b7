// How the long-running commands end on SIGINT, SIGTERM and SIGPIPE: the handlers only note the signal
// and stop the capture reader at work; each command looks at interrupted() between records, messages or
// files, stops there, finishes its output and prints its summary as on a normal end. main turns the
// signal into the exit status.
#ifndef SOMEIP_JSON_INTERRUPTS_H
#define SOMEIP_JSON_INTERRUPTS_H

#include <cstdio>
#include <memory>
#include <string>

#include "ZQSomeIPCapture.h"

namespace someip_json {

// Installs the handlers; called by the commands that stop cleanly (the others keep the default).
void catchInterrupts();
// Whether SIGINT, SIGTERM or SIGPIPE came.
bool interrupted();
// Whether the reader of standard output went away (SIGPIPE): what is written to it from then on is
// dropped, and failed writes to it are no error.
bool outputGone();
// `status`, or the status of the signal that came first: 130 (SIGINT), 143 (SIGTERM), 141 (SIGPIPE).
int exitStatus(int status);
// For the summaries: "" on a normal end, else what ended the command, starting with "; ".
std::string interruptNote();

// While alive, an interrupt (or stopReader()) also stops `reader`, so that a read waiting for input
// ends at once.
class StopOnInterrupt {
public:
    explicit StopOnInterrupt(ZQSomeIP::capture::CaptureReader& reader);
    ~StopOnInterrupt();
    StopOnInterrupt(const StopOnInterrupt&) = delete;
    StopOnInterrupt& operator=(const StopOnInterrupt&) = delete;
};
// Stops the reader a StopOnInterrupt holds, if any; safe in a signal handler.
void stopReader();

// While alive, this thread holds the interrupt signals back, so that threads started meanwhile never take
// them: they reach the thread that reads, and wake it.
class InterruptsHeld {
public:
    InterruptsHeld();
    ~InterruptsHeld();
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;
};

// Waits until `fd` has input (or its end) to read; false when an interrupt came first.
bool waitForInput(int fd);
// CaptureReader::open, with standard input ("-") first waited for as waitForInput() does. Null when an
// interrupt came first; a capture that cannot be opened is a usage error naming it.
std::unique_ptr<ZQSomeIP::capture::CaptureReader> openCapture(const std::string& path,
                                                              const ZQSomeIP::capture::Options& options);
// A stdio stream over `fd` whose reads wait as waitForInput() does and end the input on an interrupt.
// Closing it leaves `fd` open.
FILE* interruptibleInput(int fd);
// A file by path, opened for reading: a named pipe or a terminal is read as interruptibleInput() reads,
// and opening a named pipe does not wait for its writer. Null when it cannot be opened.
FILE* openInterruptible(const std::string& path);

} // namespace someip_json

#endif // SOMEIP_JSON_INTERRUPTS_H
