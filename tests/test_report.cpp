// The capture report: what its model counts from a small capture, the bounded series, and a page that
// keeps hostile names as text.
#include "capture_test_support.h"
#include "report_html.h"
#include "report_model.h"

namespace {

using namespace capturetest;

// Vehicle.Status: an enum, a scaled number and a bit field (docs/format.md's example); the service's
// name is hostile markup.
const char kFormat[] = R"({ "FormatVersion": 2,
  "Types": { "Gear": { "ParamType": "ENUM", "BaseType": "uint8_t",
                       "Enumerators": [ { "Name": "PARK", "Value": 0 }, { "Name": "DRIVE", "Value": 3 } ] } },
  "Services": [ { "ServiceName": "Vehicle<script>x()</script>", "ServiceID": "4097",
    "Attribute": { "ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN", "StructLengthFieldSize": "16" },
    "Events": [ { "EventName": "Status", "EventID": "32769", "Params": [ { "MethodType": "event",
      "ParamsDetails": [
        { "ParamName": "gear", "ParamType": "TYPEREF", "TypeRef": "Gear" },
        { "ParamName": "temp", "ParamType": "uint8_t", "Scale": { "Factor": 0.5, "Offset": -40, "Unit": "degC" } },
        { "ParamName": "lamps", "ParamType": "BITFIELD", "BaseType": "uint8_t",
          "Bits": [ { "Name": "low", "Bit": 0 }, { "Name": "high", "Bit": 1 } ] } ] } ] } ] } ] })";

constexpr uint32_t kStatus = 0x10018001;
constexpr uint64_t kSecond = 1000000;  // pcap microseconds

Frame datagram(uint64_t ts, const Bytes& someip_bytes)
{
    return Frame{eth(0x0800, ipv4(udp(30490, 30490, someip_bytes))), ts};
}

Frame offer(uint64_t ts, uint32_t ttl)
{
    const Bytes entry = Bytes{0x01, 0, 0, 0} + be(0x1001, 2) + be(1, 2) + Bytes{1} + be(ttl, 3) + be(0, 4);
    const Bytes payload = Bytes{0xC0, 0, 0, 0} + be(entry.size(), 4) + entry + be(0, 4);
    return datagram(ts, someip(0xFFFF8100, 1, 0x02, payload));
}

std::vector<Frame> frames()
{
    return {
        datagram(0, someip(kStatus, 1, 0x02, {0x03, 0x82, 0x01})),   // DRIVE, 25 degC, low beam
        offer(1 * kSecond, 3),
        datagram(kSecond * 3 / 2, someip(kStatus, 2, 0x02, {0x00, 0x50, 0x02})),  // PARK, 0 degC, high beam
        offer(2 * kSecond, 3),                                          // continues the first offer
        datagram(kSecond * 5 / 2, someip(kStatus, 3, 0x02, {0x03})),   // too short
        datagram(3 * kSecond, someip(0x55550001, 4, 0x00, {0xAA, 0xBB})),
        offer(kSecond * 7 / 2, 0),                                      // stop offer
        datagram(4 * kSecond, someip(0x55550001, 5, 0x00, {0xAA, 0xBB})),
    };
}

report::Report build(const report::ReportOptions& options)
{
    ZQSomeIP::ZQSomeIPPlainStatus status;
    const auto set = ZQSomeIP::ZQSomeIPFormatSet::loadText(kFormat, "vehicle.json", status);
    EXPECT_TRUE(status.ok()) << status.message;
    const std::string path = tempPath("in.pcap");
    writeFile(path, pcapBytes(kEthernet, frames()));
    std::string error;
    auto reader = CaptureReader::open(path, {}, error);
    EXPECT_TRUE(reader) << error;
    report::ReportBuilder builder(*set, options);
    for (Message m; reader && reader->next(m);) {
        builder.add(m);
    }
    builder.addFile(path, reader->status());
    return builder.report();
}

const report::Signal* signal(const report::Report& r, const std::string& path)
{
    for (const report::Signal& s : r.signals) {
        if (s.path == path) return &s;
    }
    return nullptr;
}

TEST(Report, ModelCountsMessagesSignalsAndDiscovery)
{
    const report::Report r = build({});
    EXPECT_EQ(r.summary.stats.messages, 8u);
    EXPECT_EQ(r.summary.decoded, 5u);  // two statuses, three SD messages
    EXPECT_EQ(r.summary.failed, (std::map<std::string, uint64_t>{{"truncated", 1}, {"unknown_message", 2}}));
    EXPECT_EQ(r.summary.last - r.summary.first, 4000000000);

    ASSERT_EQ(r.rows.size(), 3u);
    const report::MessageRow& status = r.rows[0];
    EXPECT_EQ(status.service_name, "Vehicle<script>x()</script>");
    EXPECT_EQ(status.method_name, "Status");
    EXPECT_TRUE(status.known);
    EXPECT_EQ(status.count, 3u);
    EXPECT_EQ(status.failures, 1u);
    EXPECT_EQ(status.size_min, 1u);
    EXPECT_EQ(status.size_max, 3u);
    EXPECT_TRUE(r.rows[1].sd);
    EXPECT_EQ(r.rows[1].count, 3u);
    EXPECT_FALSE(r.rows[2].known);  // 0x5555: no format
    EXPECT_EQ(r.rows[2].count, 2u);
    ASSERT_EQ(r.samples.at("unknown_message").size(), 2u);
    EXPECT_EQ(r.samples.at("unknown_message")[0].hex, "aabb");

    // Every numeric leaf: enums and bools as steps, scaled numbers physical.
    ASSERT_EQ(r.signals.size(), 5u);
    const report::Signal* gear = signal(r, "gear");
    const report::Signal* temp = signal(r, "temp");
    const report::Signal* low = signal(r, "lamps.low");
    ASSERT_TRUE(gear && temp && low);
    EXPECT_TRUE(gear->step);
    EXPECT_TRUE(low->step);
    EXPECT_FALSE(temp->step);
    EXPECT_EQ(gear->series.count(), 2u);
    EXPECT_EQ(gear->series.max(), 3);
    EXPECT_EQ(gear->series.last(), 0);
    EXPECT_EQ(temp->series.min(), 0);
    EXPECT_EQ(temp->series.max(), 25);

    ASSERT_EQ(r.sd.size(), 1u);
    ASSERT_EQ(r.sd[0].runs.size(), 2u);
    EXPECT_EQ(r.sd[0].runs[0].name, "offer-service");
    EXPECT_EQ(r.sd[0].runs[0].count, 2u);
    EXPECT_EQ(r.sd[0].runs[1].name, "stop-offer-service");
    ASSERT_EQ(r.rates.size(), 3u);
    EXPECT_EQ(r.rates[0].series.count(), 3u);
}

TEST(Report, SignalChoiceAndCap)
{
    report::ReportOptions chosen;
    chosen.signals.push_back({-1, "Vehicle<script>x()</script>", 0x8001, "", "temp"});
    chosen.signals.push_back({0x1001, "", -1, "Status", "speed"});
    const report::Report one = build(chosen);
    ASSERT_EQ(one.signals.size(), 1u);
    EXPECT_EQ(one.signals[0].path, "temp");
    EXPECT_EQ(one.choices_matched, (std::vector<bool>{true, false}));

    report::ReportOptions capped;
    capped.max_signals = 2;
    const report::Report two = build(capped);
    EXPECT_EQ(two.signals.size(), 2u);
    EXPECT_EQ(two.signals_dropped, 3u);
}

TEST(Report, PageEscapesNames)
{
    std::string page;
    report::writeHtml(build({}), page);
    EXPECT_EQ(page.find("<script>x()"), std::string::npos);
    EXPECT_NE(page.find("Vehicle&lt;script&gt;x()&lt;/script&gt;"), std::string::npos);
    EXPECT_NE(page.find("data-report-ready"), std::string::npos);
}

// Buckets merge pairwise as time runs on; a lone spike survives every merge.
TEST(Report, SeriesStaysWithinBudgetAndKeepsExtremes)
{
    report::Series s(8, 1000);
    for (int i = 0; i < 1000; ++i) {
        s.add(i * 1000, i == 500 ? 1e6 : i % 7);
    }
    EXPECT_LE(s.buckets().size(), 8u);
    EXPECT_GE(s.width() * 8, 1000 * 1000);
    uint64_t total = 0;
    double top = 0;
    for (const report::Series::Bucket& b : s.buckets()) {
        total += b.count;
        top = std::max(top, b.max);
    }
    EXPECT_EQ(total, 1000u);
    EXPECT_EQ(top, 1e6);
    EXPECT_EQ(s.min(), 0);
    EXPECT_EQ(s.last(), 999 % 7);
}

}  // namespace
