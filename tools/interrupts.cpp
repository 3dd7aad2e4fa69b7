#include "interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "tool_support.h"

namespace someip_json {

namespace {

namespace cap = ZQSomeIP::capture;

// How long a wait for input goes before it looks at the flag again: a signal taken between the look and
// the wait is noticed within this.
constexpr int kWaitMs = 100;

// The first signal that came (0: none), and whether standard output has gone.
std::atomic<int> g_signal{0};
std::atomic<bool> g_output_gone{false};
std::atomic<cap::CaptureReader*> g_reader{nullptr};
// /dev/null, opened when the handlers are installed: standard output is pointed there once its reader
// has gone, so that what is still written goes nowhere instead of failing again and again.
int g_null = -1;

const int kSignals[] = {SIGINT, SIGTERM, SIGPIPE};

void noteSignal(int signal)
{
    const int saved = errno;
    int none = 0;
    g_signal.compare_exchange_strong(none, signal);
    if (signal == SIGPIPE) {
        g_output_gone = true;
        if (g_null >= 0) {
            dup2(g_null, STDOUT_FILENO);
        }
    }
    stopReader();
    errno = saved;
}

sigset_t interruptSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

} // namespace

void catchInterrupts()
{
    static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
                      std::atomic<cap::CaptureReader*>::is_always_lock_free,
                  "the handler touches nothing but lock-free atomics");
    if (g_null < 0) {
        g_null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    for (const int signal : kSignals) {
        struct sigaction action {};
        action.sa_handler = noteSignal;
        sigemptyset(&action.sa_mask);
        // Restarted: a write to standard output cut short by a signal makes stdio drop what it buffered,
        // half a line included. Waits for input end on a signal all the same: they poll, and poll is
        // never restarted.
        action.sa_flags = SA_RESTART;
        if (signal != SIGPIPE) {
            // A second Ctrl-C ends the process at once, for when stopping cleanly takes too long.
            action.sa_flags |= SA_RESETHAND;
        }
        sigaction(signal, &action, nullptr);
    }
}

bool interrupted()
{
    return g_signal.load(std::memory_order_relaxed) != 0;
}

bool outputGone()
{
    return g_output_gone.load(std::memory_order_relaxed);
}

int exitStatus(int status)
{
    switch (g_signal.load()) {
    case SIGINT:
        return kExitInterrupted;
    case SIGTERM:
        return kExitTerminated;
    case SIGPIPE:
        return kExitOutputGone;
    default:
        return status;
    }
}

std::string interruptNote()
{
    switch (g_signal.load()) {
    case SIGINT:
        return "; interrupted (SIGINT)";
    case SIGTERM:
        return "; interrupted (SIGTERM)";
    case SIGPIPE:
        return "; stopped: standard output was closed";
    default:
        return "";
    }
}

StopOnInterrupt::StopOnInterrupt(cap::CaptureReader& reader)
{
    g_reader = &reader;
    if (interrupted()) {
        reader.stop();
    }
}

StopOnInterrupt::~StopOnInterrupt()
{
    g_reader = nullptr;
}

void stopReader()
{
    if (cap::CaptureReader* reader = g_reader.load()) {
        reader->stop();
    }
}

InterruptsHeld::InterruptsHeld()
{
    const sigset_t set = interruptSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

InterruptsHeld::~InterruptsHeld()
{
    const sigset_t set = interruptSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

bool waitForInput(int fd)
{
    while (!interrupted()) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, kWaitMs) > 0) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<cap::CaptureReader> openCapture(const std::string& path, const cap::Options& options)
{
    if (path == "-" && !waitForInput(STDIN_FILENO)) {
        return nullptr;
    }
    std::string error;
    auto reader = cap::CaptureReader::open(path, options, error);
    if (reader == nullptr) {
        fail(kExitUsage, path + ": " + error);
    }
    return reader;
}

namespace {

ssize_t readWhenReady(void* cookie, char* out, size_t size)
{
    const int from = static_cast<int>(reinterpret_cast<intptr_t>(cookie));
    return waitForInput(from) ? ::read(from, out, size) : 0;
}

FILE* waitingStream(int fd, int (*close)(void*))
{
    FILE* in = fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(fd)), "r",
                           cookie_io_functions_t{readWhenReady, nullptr, nullptr, close});
    if (in != nullptr) {
        setvbuf(in, nullptr, _IOFBF, 1 << 16);  // one wait per large read, not per line
    }
    return in;
}

}  // namespace

FILE* interruptibleInput(int fd) { return waitingStream(fd, nullptr); }

FILE* openInterruptible(const std::string& path)
{
    // Without O_NONBLOCK, opening a named pipe waits for a writer, and no signal ends that wait. The flag
    // is taken off again at once: reads wait for input in poll, or block on a regular file as ever.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    struct stat st {};
    const int flags = fcntl(fd, F_GETFL);
    FILE* in = nullptr;
    if (fstat(fd, &st) == 0 && flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0) {
        const auto closeFd = [](void* cookie) { return ::close(static_cast<int>(reinterpret_cast<intptr_t>(cookie))); };
        in = S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode) ? waitingStream(fd, closeFd) : fdopen(fd, "rb");
    }
    if (in == nullptr) {
        ::close(fd);
    }
    return in;
}

} // namespace someip_json
