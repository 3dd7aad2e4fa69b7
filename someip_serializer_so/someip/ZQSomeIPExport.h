/* What libsomeip_parser_vaq shows its hosts. The library is built with hidden visibility: only what is
 * marked ZQ_SOMEIP_API is exported, so everything else may change without hosts noticing. Growing the
 * list is a decision: tests/exported_symbols.txt holds it and a test compares the built library with it. */
#ifndef ZQ_SOMEIP_EXPORT_H
#define ZQ_SOMEIP_EXPORT_H

#if defined(__GNUC__)
#define ZQ_SOMEIP_API __attribute__((visibility("default")))
#else
#define ZQ_SOMEIP_API
#endif

#endif /* ZQ_SOMEIP_EXPORT_H */
