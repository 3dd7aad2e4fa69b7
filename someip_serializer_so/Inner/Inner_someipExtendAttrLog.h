#ifndef INNER_SOMEIP_EXTEND_ATTR_LOG_H
#define INNER_SOMEIP_EXTEND_ATTR_LOG_H

#include "someip/ZQSomeIPPayloadAttr.h"
#include "someip/zq_someip_log.h"

// The lines both converters log when their attributes are (re)set, with the caller's file, line and
// function. Only the nine encoding fields are shown; the frame counters are not.
#define ZQ_SOMEIP_LOG_EXTEND_ATTR(record) \
    do { \
        const ZQSomeIPExtendAttr& a_ = (record); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** setExtendAttr() : ZQSomeIPExtendAttr updated!!! *****"); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  array_length_field_size    = %d", int(a_.array_length_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  vector_length_field_size   = %d", int(a_.vector_length_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  struct_length_field_size   = %d", int(a_.struct_length_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  string_length_field_size   = %d", int(a_.string_length_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  union_length_field_size    = %d", int(a_.union_length_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  alignment                  = %d", int(a_.alignment)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  byte_order                 = %d", int(a_.byte_order)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  union_type_field_size      = %d", int(a_.union_type_field_size)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  string_utf                 = %d", int(a_.string_utf)); \
        ZQ_SOMEIP_LOGD(" [%s][%d][%s]  ***** setExtendAttr() : ZQSomeIPExtendAttr end!!! *****"); \
    } while (0)

#endif // INNER_SOMEIP_EXTEND_ATTR_LOG_H
