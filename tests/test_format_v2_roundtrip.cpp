// Generated version-2 formats using every construct, nested (unions in arrays, TLV in unions, chains of
// shared types, byte orders and length field sizes per element): random values encode, decode to the
// same values and encode again to the same bytes, in every rendering style; damaged payloads that
// decode encode again and decode to the same text, and to the same bytes where nothing was skipped
// and the format gives a value one encoding only. The seed is printed; SOMEIP_V2_SEED=<seed> replays
// a run from its first round, SOMEIP_V2_ROUNDS sets how many rounds it has.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "compiled/ZQSomeIPFormatSet.h"
#include "conv_test_support.h"
#include "format_v2_generator.h"
#include "generator_support.h"

namespace {

using namespace gen;    // random choices, seeds, compact JSON
using namespace v2gen;  // formats, values and damaged payloads

using namespace ZQSomeIP;

const unsigned long kSeed = envNumber("SOMEIP_V2_SEED", std::random_device{}());
const unsigned long kRounds = envNumber("SOMEIP_V2_ROUNDS", 400);

// Whether a decoded value is the generated one: floats by their float value, numbers exactly.
bool sameValue(const Node& n, const Json::Value& want, const Json::Value& got)
{
    if (want.isObject() || want.isArray()) {  // structures, unions, bit fields, arrays, vectors
        if (got.type() != want.type() || got.size() != want.size()) return false;
        for (Json::ArrayIndex i = 0; want.isArray() && i < want.size(); ++i)
            if (!sameValue(n.kids[0], want[i], got[i])) return false;
        for (const std::string& key : want.isObject() ? want.getMemberNames() : std::vector<std::string>()) {
            const auto kid = std::find_if(n.kids.begin(), n.kids.end(), [&](const Node& k) { return k.name == key; });
            if (!got.isMember(key) || !sameValue(kid != n.kids.end() ? *kid : Node(), want[key], got[key])) return false;
        }
        return true;
    }
    if (n.type == "float") return got.isNumeric() && float(got.asDouble()) == float(want.asDouble());
    if (want.type() == Json::realValue) return got.isNumeric() && got.asDouble() == want.asDouble();
    if (want.isIntegral() && got.isIntegral()) {
        return want.isUInt64() ? got.isUInt64() && got.asUInt64() == want.asUInt64() : got.isInt64() && got.asInt64() == want.asInt64();
    }
    return want == got;
}


TEST(FormatV2RoundTrip, GeneratedFormatsValuesAndDamagedPayloads)
{
    printf("[ format v2 ] seed %lu, %lu rounds (SOMEIP_V2_SEED and SOMEIP_V2_ROUNDS replay them)\n", kSeed, kRounds);
    convtest::TempDir dir;
    ZQSomeIPPlainOptions lossless;  // a named range's values apart
    lossless.enumStyle = ZQSomeIPEnumStyle::Both;
    size_t encoded = 0, skipped = 0, damagedDecoded = 0, damagedFailed = 0;
    for (unsigned long round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
        Rng rng(kSeed + round);
        const Generated g = generate(rng);
        SCOPED_TRACE("SOMEIP_V2_SEED=" + std::to_string(kSeed + round) + " SOMEIP_V2_ROUNDS=1 replays this round\n" + g.file);
        ZQSomeIPPlainStatus status;
        const auto set = ZQSomeIPFormatSet::load(dir.write("f.json", g.file), status);
        ASSERT_TRUE(status.ok()) << status.toJson();
        const ZQSomeIPPlainMethod* method = set->find(0x1234, 1, 2);
        ASSERT_NE(method, nullptr);
        std::vector<Bytes> valid;
        for (int sample = 0; sample < 4; ++sample) {
            const Sample s = value(rng, g.list);
            const std::string input = compact(s.input);
            SCOPED_TRACE("input " + input);
            Bytes payload;
            status = plainEncode(*method, input, payload);
            if (status.code == ZQSomeIPPlainError::TooLong) {  // an 8-bit length field or a MaxLength outgrown
                ++skipped;
                continue;
            }
            ASSERT_TRUE(status.ok()) << status.toJson();
            ++encoded;
            std::string text;
            status = plainDecode(*method, payload.data(), payload.size(), text);
            ASSERT_TRUE(status.ok()) << status.toJson() << "\n" << convtest::hex(payload);
            EXPECT_EQ(status.warningsJson(), "[]");
            EXPECT_TRUE(sameValue(g.list, s.canonical, convtest::parse(text))) << "want " << compact(s.canonical) << "\ngot  " << text;
            ZQSomeIPPlainOptions options;
            options.enumStyle = pick(rng, {ZQSomeIPEnumStyle::Name, ZQSomeIPEnumStyle::Value, ZQSomeIPEnumStyle::Both});
            options.scaled = pick(rng, {ZQSomeIPScaledStyle::Raw, ZQSomeIPScaledStyle::Both});
            const auto encodesBack = [&](const std::string& json, const ZQSomeIPPlainOptions& o) {
                Bytes again;
                const ZQSomeIPPlainStatus e = plainEncode(*method, json, again, o);
                EXPECT_TRUE(e.ok()) << e.toJson() << "\n" << json;
                EXPECT_EQ(convtest::hex(again), convtest::hex(payload)) << json;
            };
            if (!s.ranged) encodesBack(text, ZQSomeIPPlainOptions());
            std::string styled;
            ASSERT_TRUE(plainDecode(*method, payload.data(), payload.size(), styled, options).ok());
            if (!s.ranged || options.enumStyle != ZQSomeIPEnumStyle::Name) encodesBack(styled, options);
            valid.push_back(payload);
        }
        for (const Bytes& original : valid) {
            for (int n = 0; n < 3; ++n) {
                const Bytes payload = damaged(rng, original);
                SCOPED_TRACE("damaged payload " + convtest::hex(payload));
                std::string text;
                const ZQSomeIPPlainStatus decoded = plainDecode(*method, payload.data(), payload.size(), text, lossless);
                if (!decoded.ok()) {
                    ++damagedFailed;
                    EXPECT_FALSE(decoded.message.empty());
                    continue;
                }
                ++damagedDecoded;
                Bytes again;
                status = plainEncode(*method, text, again, lossless);
                ASSERT_TRUE(status.ok()) << status.toJson() << "\n" << text;
                std::string text2;
                ASSERT_TRUE(plainDecode(*method, again.data(), again.size(), text2, lossless).ok()) << convtest::hex(again);
                EXPECT_EQ(text2, text);
                if (g.canonical && decoded.warnings.empty()) {
                    EXPECT_EQ(convtest::hex(again), convtest::hex(payload)) << text;
                }
            }
        }
    }
    printf("[ format v2 ] %zu values encoded (%zu too long for their length fields), %zu damaged payloads decoded, %zu refused\n",
           encoded, skipped, damagedDecoded, damagedFailed);
    if (kRounds >= 50) {
        EXPECT_GT(encoded, 2 * skipped);  // the values must not go mostly untested
    }
}

} // namespace
