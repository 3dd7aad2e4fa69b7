#include "zq_someip_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

zq_someip_logfunc_t g_logfunc = nullptr;

}

namespace {

// The variable is read anew at every test on purpose: a host may change it while running.
// Unset reads as "no threshold" and is told apart from 0 by the caller.
bool read_threshold(int32_t& threshold)
{
    const char* value = getenv("SOMEIPSER_LOG_LEVEL");
    if (value == nullptr) {
        return false;
    }
    threshold = static_cast<int32_t>(strtol(value, nullptr, 10));
    return true;
}

int32_t current_threshold()
{
    int32_t threshold = 0;
    read_threshold(threshold);
    return threshold;
}

void format_timestamp(char* out, size_t size)
{
    memset(out, 0, size);
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_nsec > 999999999L) {
        now.tv_sec += 1;
        now.tv_nsec -= 1000000000L;
    }
    struct tm parts;
    if (gmtime_r(&now.tv_sec, &parts) == nullptr) {
        return;
    }
    // Real calendar values always fit; the bound only guards against impossible years.
    const int written = snprintf(out, size, "%4d%02d%02d %02d:%02d:%02d.%ld", parts.tm_year + 1900,
                                 parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                                 now.tv_nsec / 1000000L);
    if (written < 0) {
        out[0] = '\0';
    }
}

} // namespace

extern "C" void zq_someip_log_output(int32_t level, const char* tag, const char* format, ...)
{
    int32_t threshold = 0;
    if (!read_threshold(threshold) || tag == nullptr || format == nullptr || threshold == 0) {
        return;
    }

    char message[1024];
    memset(message, 0, sizeof(message));
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);

    if (g_logfunc != nullptr) {
        g_logfunc(level, tag, message);
        return;
    }

    char stamp[32];
    format_timestamp(stamp, sizeof(stamp));
    const int pid = static_cast<int>(getpid());
    const int tid = static_cast<int>(syscall(SYS_gettid));

    if (level == ZQ_SOMEIP_LEVEL_ERROR && current_threshold() >= 2) {
        printf("\033[;31m[PID:%d TID:%d] %s %s %s\n\033[0m", pid, tid, stamp, tag, message);
    }
    if (level == ZQ_SOMEIP_LEVEL_DEBUG && current_threshold() >= 5) {
        printf("[PID:%d TID:%d] %s %s %s\n", pid, tid, stamp, tag, message);
    }
    if (level == ZQ_SOMEIP_LEVEL_INFO && current_threshold() >= 4) {
        printf("[PID:%d TID:%d] %s %s %s\n", pid, tid, stamp, tag, message);
    }
    if (level == ZQ_SOMEIP_LEVEL_WARNING && current_threshold() >= 3) {
        printf("[PID:%d TID:%d] %s %s %s\n", pid, tid, stamp, tag, message);
    }
}

bool zq_someip_log_enabled()
{
    int32_t threshold = 0;
    return read_threshold(threshold) && threshold != 0;
}

extern "C" void zq_someip_set_logfunc_callback(zq_someip_logfunc_t callback)
{
    g_logfunc = callback;
}

extern "C" {
void zq_someip_log_base_info(void) {}
void zq_someip_log_base_debug(void) {}
void zq_someip_log_base_warn(void) {}
void zq_someip_log_base_error(void) {}
void zq_someip_base_log_base_info(void) {}
void zq_someip_base_log_base_debug(void) {}
void zq_someip_base_log_base_warn(void) {}
void zq_someip_base_log_base_error(void) {}
}

zq_someip_log_base::zq_someip_log_base() {}
zq_someip_log_base::~zq_someip_log_base() {}
void zq_someip_log_base::create_instance() {}
void zq_someip_log_base::create_base_instance() {}
