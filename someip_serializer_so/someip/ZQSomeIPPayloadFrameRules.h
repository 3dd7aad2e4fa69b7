#ifndef ZQ_SOMEIP_PAYLOAD_FRAME_RULES_H
#define ZQ_SOMEIP_PAYLOAD_FRAME_RULES_H

#include <cstdint>
#include <vector>

#include "ZQSomeIPPayloadAttr.h"
#include "ZQSomeIPPayloadUtilsByteOrder.h"

// The rules that the payload writer and the payload reader apply alike: which attributes are in force
// for an element or a new container, which length field size belongs to a frame, where the "align the
// next element" flag lives and when it is cleared, and how much padding an offset needs. Both engines
// keep their frames in a std::vector whose back() is the innermost open container.
struct ZQSomeIPPayloadFrameRules {
    using Frames = std::vector<ZQSomeIPInternalAttr>;

    // Attributes of an engine constructed without a record. The array default differs on purpose:
    // fixed arrays carry no length field unless the format says so.
    static ZQSomeIPExtendAttr engine_defaults()
    {
        ZQSomeIPExtendAttr a;
        a.array_length_field_size = 0;
        a.alignment = ZQ_SOMEIP_PAYLOAD_ALIGNMENT_NONE;
        a.byte_order = ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN;
        return a;
    }

    // An engine's own attributes, kept from its construction record (or the defaults above). The byte
    // order stored here is only the initial one: the engine's byte order utility carries the current one.
    static ZQSomeIPExtendAttr engine_attributes(const ZQSomeIPExtendAttr* attr)
    {
        ZQSomeIPExtendAttr a = attr ? *attr : engine_defaults();
        a.length_field_value = 0;
        a.length_field_read = 0;
        return a;
    }

    // The engine's own attributes as they stand now: with the byte order currently set.
    static ZQSomeIPExtendAttr with_current_byte_order(ZQSomeIPExtendAttr a, const ZQSomeIPPayloadUtilsByteOrder& util)
    {
        a.byte_order = util.get_network_byte_order();
        return a;
    }

    // Length field size that belongs to a container kind; 0 for anything that is not a container.
    static uint32_t length_field_size(uint32_t type, const ZQSomeIPExtendAttr& a)
    {
        switch (type) {
        case ZQ_SOMEIP_CONTAINER_ARRAY: return a.array_length_field_size;
        case ZQ_SOMEIP_CONTAINER_STRING: return a.string_length_field_size;
        case ZQ_SOMEIP_CONTAINER_STRUCT: return a.struct_length_field_size;
        case ZQ_SOMEIP_CONTAINER_UNION: return a.union_length_field_size;
        case ZQ_SOMEIP_CONTAINER_VECTOR: return a.vector_length_field_size;
        default: return 0;
        }
    }
    static uint32_t length_field_size(const ZQSomeIPInternalAttr& frame)
    {
        return length_field_size(frame.type, frame.attr);
    }

    // Length, type and selector fields are 1, 2 or 4 bytes wide (0 means "no field" and is decided
    // by the caller before it gets here).
    static bool is_field_size(uint32_t size) { return size == 1 || size == 2 || size == 4; }

    static const ZQSomeIPInternalAttr* top(const Frames& frames)
    {
        return frames.empty() ? nullptr : &frames.back();
    }
    static bool top_is(const Frames& frames, uint32_t type)
    {
        return !frames.empty() && frames.back().type == type;
    }
    // The container that holds the innermost one, if any.
    static const ZQSomeIPInternalAttr* below_top(const Frames& frames)
    {
        return frames.size() < 2 ? nullptr : &frames[frames.size() - 2];
    }

    static uint32_t begin_index(const Frames& frames)
    {
        return frames.empty() ? 0 : frames.back().begin_index;
    }

    // Attributes in force for one element: the explicit record if given, else the innermost frame's,
    // else `top_level` (what each engine uses when nothing is open). The type and begin index are the
    // innermost frame's, or 0 and the current position at top level.
    static ZQSomeIPInternalAttr current_attr(const Frames& frames, const ZQSomeIPExtendAttr* attr,
                                             const ZQSomeIPExtendAttr& top_level, uint32_t position)
    {
        ZQSomeIPInternalAttr current;
        if (frames.empty()) {
            current.type = ZQ_SOMEIP_CONTAINER_NONE;
            current.begin_index = position;
            current.attr = attr ? *attr : top_level;
        } else {
            current.type = frames.back().type;
            current.begin_index = frames.back().begin_index;
            current.attr = attr ? *attr : frames.back().attr;
        }
        return current;
    }

    // Attributes for a container about to open: inherited from the enclosing container unless the
    // member brings its own; at top level the engine's own attributes (`own`).
    static ZQSomeIPExtendAttr begin_attr(const Frames& frames, const ZQSomeIPExtendAttr* attr,
                                         const ZQSomeIPExtendAttr& own)
    {
        if (attr) {
            return *attr;
        }
        return frames.empty() ? own : frames.back().attr;
    }

    // The "align before the next element" flag: the innermost frame's, or the engine's own at top level.
    static bool& align_flag(Frames& frames, bool& top_level_flag)
    {
        return frames.empty() ? top_level_flag : frames.back().need_align;
    }

    // After an alignment step the flag is consumed at top level and in a struct; arrays, vectors and
    // unions keep it, so every later element in them is aligned as well.
    static void consume_align_flag(Frames& frames, bool& top_level_flag)
    {
        if (frames.empty()) {
            top_level_flag = false;
        } else if (frames.back().type == ZQ_SOMEIP_CONTAINER_STRUCT) {
            frames.back().need_align = false;
        }
    }

    // A dynamic-length string just ended: the next element is aligned at top level or in a struct.
    static void mark_after_dynamic_string(Frames& frames, bool& top_level_flag)
    {
        if (frames.empty()) {
            top_level_flag = true;
        } else if (frames.back().type == ZQ_SOMEIP_CONTAINER_STRUCT) {
            frames.back().need_align = true;
        }
    }

    // A vector is being closed (still the innermost frame): the element after it is aligned.
    static void mark_after_vector(Frames& frames, bool& top_level_flag)
    {
        if (frames.size() < 2) {
            top_level_flag = true;
        } else {
            frames[frames.size() - 2].need_align = true;
        }
    }

    // Bytes needed to bring `offset` (counted from the enclosing container's start) to `alignment`.
    // The reader historically looks only at the low byte of the remainder; both agree for every
    // alignment a format can express (1, 2, 4, 8).
    static uint32_t align_padding(uint32_t offset, uint32_t alignment, bool low_byte_remainder = false)
    {
        if (alignment <= 1) {
            return 0;
        }
        uint32_t remainder = offset % alignment;
        if (low_byte_remainder) {
            remainder &= 0xFFu;
        }
        return remainder == 0 ? 0 : alignment - remainder;
    }

    static void apply_byte_order(ZQSomeIPPayloadUtilsByteOrder& util, uint32_t byte_order)
    {
        util.set_network_byte_order(static_cast<ZQSomeIPPayloadByteOrder>(byte_order));
    }
};

#endif // ZQ_SOMEIP_PAYLOAD_FRAME_RULES_H
