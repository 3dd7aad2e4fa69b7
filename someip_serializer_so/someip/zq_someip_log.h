#ifndef ZQ_SOMEIP_LOG_H
#define ZQ_SOMEIP_LOG_H

#include <stdint.h>

#include "ZQSomeIPExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Host callback: receives every message that passes the SOMEIPSER_LOG_LEVEL gate, whatever its level. */
typedef void (*zq_someip_logfunc_t)(int32_t level, const char* tag, const char* message);

/* The installed callback; null means "print to standard output". */
extern ZQ_SOMEIP_API zq_someip_logfunc_t g_logfunc;

/* Formats a printf-style message, filters it by SOMEIPSER_LOG_LEVEL (read on every call) and hands it to
 * g_logfunc or prints it with time stamp, PID and TID. Messages longer than 1023 characters are cut. */
ZQ_SOMEIP_API void zq_someip_log_output(int32_t level, const char* tag, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

ZQ_SOMEIP_API void zq_someip_set_logfunc_callback(zq_someip_logfunc_t callback);

/* Placeholders kept so that hosts linking against these names resolve; they do nothing. */
ZQ_SOMEIP_API void zq_someip_log_base_info(void);
ZQ_SOMEIP_API void zq_someip_log_base_debug(void);
ZQ_SOMEIP_API void zq_someip_log_base_warn(void);
ZQ_SOMEIP_API void zq_someip_log_base_error(void);
ZQ_SOMEIP_API void zq_someip_base_log_base_info(void);
ZQ_SOMEIP_API void zq_someip_base_log_base_debug(void);
ZQ_SOMEIP_API void zq_someip_base_log_base_warn(void);
ZQ_SOMEIP_API void zq_someip_base_log_base_error(void);

#ifdef __cplusplus
}

/* True when SOMEIPSER_LOG_LEVEL lets messages through (to a callback or to standard output): code
 * with a quiet fast path takes it only when this is false. */
ZQ_SOMEIP_API bool zq_someip_log_enabled();

/* Placeholder class, exported for the same reason as the functions above. */
class ZQ_SOMEIP_API zq_someip_log_base {
public:
    zq_someip_log_base();
    ~zq_someip_log_base();
    void create_instance();
    void create_base_instance();
};
#endif

/* Log levels and the tags that go with them. */
#define ZQ_SOMEIP_LEVEL_DEBUG   1
#define ZQ_SOMEIP_LEVEL_INFO    2
#define ZQ_SOMEIP_LEVEL_WARNING 3
#define ZQ_SOMEIP_LEVEL_ERROR   4

/* Every diagnostic of the library goes through these: they supply file, line and function as the first
 * three arguments, which every format string opens with ("[%s][%d][%s]"). The _IN forms name the
 * function explicitly, for code shared by several operations that must each appear under their own name. */
#define ZQ_SOMEIP_LOG_IN(function, level, tag, fmt, ...) \
    zq_someip_log_output((level), (tag), (fmt), __FILE__, __LINE__, (function), ##__VA_ARGS__)
#define ZQ_SOMEIP_LOG(level, tag, fmt, ...) ZQ_SOMEIP_LOG_IN(__func__, level, tag, fmt, ##__VA_ARGS__)
#define ZQ_SOMEIP_LOGD_IN(function, fmt, ...) \
    ZQ_SOMEIP_LOG_IN(function, ZQ_SOMEIP_LEVEL_DEBUG, "DSOMEIP_DEBUG", fmt, ##__VA_ARGS__)
#define ZQ_SOMEIP_LOGE_IN(function, fmt, ...) \
    ZQ_SOMEIP_LOG_IN(function, ZQ_SOMEIP_LEVEL_ERROR, "ESOMEIP_ERROR", fmt, ##__VA_ARGS__)
#define ZQ_SOMEIP_LOGD(fmt, ...) ZQ_SOMEIP_LOG(ZQ_SOMEIP_LEVEL_DEBUG, "DSOMEIP_DEBUG", fmt, ##__VA_ARGS__)
#define ZQ_SOMEIP_LOGW(fmt, ...) ZQ_SOMEIP_LOG(ZQ_SOMEIP_LEVEL_WARNING, "WSOMEIP_WARNING", fmt, ##__VA_ARGS__)
#define ZQ_SOMEIP_LOGE(fmt, ...) ZQ_SOMEIP_LOG(ZQ_SOMEIP_LEVEL_ERROR, "ESOMEIP_ERROR", fmt, ##__VA_ARGS__)

#endif /* ZQ_SOMEIP_LOG_H */
