#include "report_html.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <map>

#include "html_text.h"

namespace report {

namespace cap = ZQSomeIP::capture;

namespace html {

void count(std::string& out, uint64_t v)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof(digits), v).ptr);
}

void real(std::string& out, double v, int digits)
{
    char text[40];
    const int n = std::snprintf(text, sizeof(text), "%.*g", digits, v);
    out.append(text, n > 0 ? static_cast<size_t>(n) : 0);
}

void coord(std::string& out, double v)
{
    // As whole tenths: a page holds hundreds of thousands of coordinates, and formatting them as
    // floating point would cost a good part of the report's time.
    long long tenths = std::isfinite(v) && std::fabs(v) < 1e15 ? std::llround(v * 10) : 0;
    if (tenths < 0) {
        out += '-';
        tenths = -tenths;
    }
    count(out, static_cast<uint64_t>(tenths / 10));
    out += '.';
    out += static_cast<char>('0' + tenths % 10);
}

void hexId(std::string& out, uint32_t v, int width)
{
    char text[16];
    const int n = std::snprintf(text, sizeof(text), "0x%0*x", width, v);
    out.append(text, n > 0 ? static_cast<size_t>(n) : 0);
}

void utc(std::string& out, int64_t ns)
{
    const time_t t = static_cast<time_t>(ns / 1000000000);
    struct tm parts;
    gmtime_r(&t, &parts);
    char text[64];
    const size_t n = strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
    out.append(text, n);
    std::snprintf(text, sizeof(text), ".%06lld UTC", static_cast<long long>(ns % 1000000000 / 1000));
    out += text;
}

void seconds(std::string& out, int64_t ns)
{
    char text[40];
    const int n = std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(ns) / 1e9);
    out.append(text, n > 0 ? static_cast<size_t>(n) : 0);
}

std::string messageType(uint8_t type)
{
    switch (type) {
    case 0x00: return "request";
    case 0x01: return "request_no_return";
    case 0x02: return "notification";
    case 0x80: return "response";
    case 0x81: return "error";
    default: break;
    }
    std::string out;
    hexId(out, type, 2);
    return out;
}

std::string serviceLabel(uint16_t service, const std::string& name)
{
    std::string out;
    hexId(out, service);
    return name.empty() ? out : name + " (" + out + ")";
}

} // namespace html

void appendEscaped(std::string& out, std::string_view text)
{
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&#39;"; break;
        default: out += c;
        }
    }
}

namespace {

const char kStyle[] = R"(<style>
body{font:13px/1.4 system-ui,sans-serif;margin:16px 24px;color:#222}
h1{font-size:20px}h2{font-size:16px;margin-top:28px;border-bottom:1px solid #ccc}h3{font-size:14px}
table{border-collapse:collapse;margin:6px 0}td,th{border:1px solid #ddd;padding:2px 6px;text-align:left}
td.n{text-align:right;font-variant-numeric:tabular-nums}th{background:#f3f3f3}
table.sortable th{cursor:pointer}th[data-order=asc]::after{content:" \25B2"}th[data-order=desc]::after{content:" \25BC"}
svg text{font-size:10px;fill:#444}.axis path{fill:none;stroke:#999}
.legend span{margin-right:12px}.legend i{display:inline-block;width:10px;height:10px;margin-right:4px}
.signals{display:flex;flex-wrap:wrap;gap:8px}.card{border:1px solid #ddd;padding:4px;width:322px}
.card .t{font-weight:600;overflow-wrap:anywhere}.card .v{color:#555}
pre{background:#f6f6f6;padding:4px;white-space:pre-wrap;overflow-wrap:anywhere;margin:2px 0}
.note{color:#666}.side{display:flex;gap:32px;align-items:flex-start}.side h3{margin-top:0}#script-errors{color:#b00}
</style>)";

// Records script errors in the page itself, where a headless browser's DOM dump shows them.
const char kErrorScript[] = R"(<script>window.onerror=function(m,s,l){var d=document.createElement('div');)"
    R"(d.className='script-error';d.textContent=String(m)+' ('+l+')';)"
    R"((document.getElementById('script-errors')||document.documentElement).appendChild(d);};</script>)";

// Click a header to sort by its column (numbers by data-v), again to reverse.
const char kSortScript[] = R"(<script>(function(){
function key(c){var v=c.getAttribute('data-v');return v===null?c.textContent:parseFloat(v);}
document.querySelectorAll('table.sortable').forEach(function(t){
var heads=t.tHead.rows[0].cells;
Array.prototype.forEach.call(heads,function(th,i){th.addEventListener('click',function(){
var asc=th.getAttribute('data-order')!=='asc';
Array.prototype.forEach.call(heads,function(h){h.removeAttribute('data-order');});
th.setAttribute('data-order',asc?'asc':'desc');
var body=t.tBodies[0],rows=Array.prototype.slice.call(body.rows);
rows.sort(function(a,b){var x=key(a.cells[i]),y=key(b.cells[i]);
var c=(typeof x==='number'&&typeof y==='number')?x-y:String(x).localeCompare(String(y));return asc?c:-c;});
rows.forEach(function(r){body.appendChild(r);});});});});
document.body.setAttribute('data-report-ready','1');})();</script>)";

// A table row built cell by cell.
class Row {
public:
    explicit Row(std::string& out) : out_(out) { out_ += "<tr>"; }
    ~Row() { out_ += "</tr>"; }
    Row& text(std::string_view t)
    {
        out_ += "<td>";
        appendEscaped(out_, t);
        out_ += "</td>";
        return *this;
    }
    Row& number(uint64_t v)
    {
        std::string s;
        html::count(s, v);
        return cell(s, s);
    }
    Row& real(double v)
    {
        std::string s;
        html::real(s, v);
        return cell(s, s);
    }
    Row& time(int64_t ns_since_origin)
    {
        std::string s;
        html::seconds(s, ns_since_origin);
        return cell(s, s);
    }
    Row& hex(uint32_t v, int width = 4)
    {
        std::string s;
        html::hexId(s, v, width);
        return cell(s, std::to_string(v));
    }

private:
    Row& cell(const std::string& shown, const std::string& value)
    {
        out_ += "<td class=\"n\" data-v=\"" + value + "\">" + shown + "</td>";
        return *this;
    }
    std::string& out_;
};

void appendHead(std::string& out, const char* id, const char* cls, std::initializer_list<const char*> heads)
{
    out += "<table id=\"";
    out += id;
    out += "\" class=\"";
    out += cls;
    out += "\"><thead><tr>";
    for (const char* h : heads) {
        out += "<th>";
        out += h;
        out += "</th>";
    }
    out += "</tr></thead><tbody>";
}

void appendNote(std::string& out, const std::string& text)
{
    out += "<p class=\"note\">";
    appendEscaped(out, text);
    out += "</p>";
}

uint64_t codes(const cap::Statistics& s, std::initializer_list<cap::ErrorCode> which)
{
    uint64_t n = 0;
    for (const cap::ErrorCode c : which) {
        n += s.errors_by_code[static_cast<size_t>(c)];
    }
    return n;
}

void appendSummary(std::string& out, const Report& report)
{
    const Summary& s = report.summary;
    out += "<h2 id=\"summary\">Summary</h2><div class=\"side\"><div>";
    appendHead(out, "summary-table", "kv", {"What", "Value"});
    std::string first;
    if (s.timed) {
        html::utc(first, s.first);
    }
    Row(out).text("Files").text(std::to_string(s.files.size()));
    Row(out).text("First record").text(first);
    Row(out).text("Duration (s)").time(s.last - s.first);
    Row(out).text("Frames").number(s.stats.frames);
    Row(out).text("Captured bytes").number(s.stats.bytes);
    Row(out).text("SOME/IP messages").number(s.stats.messages);
    Row(out).text("Service discovery messages").number(s.stats.sd_messages);
    Row(out).text("Decoded").number(s.decoded);
    Row(out).text("Decoded with bytes skipped").number(s.warned);
    Row(out).text("Failed").number(s.records - s.decoded);
    using E = cap::ErrorCode;
    Row(out).text("TCP gaps").number(codes(s.stats, {E::TcpGap}));
    Row(out).text("TP drops").number(codes(s.stats, {E::TpInvalid, E::TpOverlap, E::TpMissingSegments}));
    Row(out).text("IP fragment drops").number(
        codes(s.stats, {E::IpFragmentOverlap, E::IpFragmentInvalid, E::IpFragmentsMissing}));
    Row(out).text("Dropped at reassembly limits").number(codes(s.stats, {E::ReassemblyLimit}));
    Row(out).text("Duplicates ignored").number(s.stats.duplicates);
    Row(out).text("Magic cookies").number(s.stats.magic_cookies);
    Row(out).text("Records out of frame order").number(s.stats.out_of_order);
    Row(out).text("Frames cut short").number(s.stats.cut_frames);
    Row(out).text("Frames without SOME/IP").number(s.stats.skipped_frames);
    out += "</tbody></table></div><div><h3>Files</h3><ul class=\"files\">";
    for (const std::string& file : s.files) {
        out += "<li>";
        appendEscaped(out, file);
        out += "</li>";
    }
    out += "</ul>";
    for (const std::string& damaged : s.damaged) {
        appendNote(out, "Reading stopped early: " + damaged);
    }
    out += "<h3>Failed, by reason</h3>";
    if (s.failed.empty()) {
        appendNote(out, "None.");
    } else {
        appendHead(out, "failures", "sortable", {"Reason", "Messages"});
        for (const auto& reason : s.failed) {
            Row(out).text(reason.first).number(reason.second);
        }
        out += "</tbody></table>";
    }
    out += "</div></div>";
}

void appendMessageRow(std::string& out, const MessageRow& r, int64_t origin, double span)
{
    Row row(out);
    row.hex(r.service).text(r.sd ? "service discovery" : r.service_name).hex(r.method).text(r.method_name);
    row.text(html::messageType(r.type)).number(r.count).real(static_cast<double>(r.count) / span);
    if (r.sized > 0) {
        row.number(r.size_min).real(static_cast<double>(r.size_sum) / static_cast<double>(r.sized)).number(r.size_max);
    } else {
        row.text("").text("").text("");
    }
    row.number(r.failures).time(r.first - origin).time(r.last - origin);
}

// The rows with a format (known) or those without, as one sortable table.
void appendMessageTable(std::string& out, const Report& report, bool known, const char* id)
{
    if (std::none_of(report.rows.begin(), report.rows.end(), [&](const MessageRow& r) { return r.known == known; })) {
        appendNote(out, "None.");
        return;
    }
    const double span = std::max(1e-9, static_cast<double>(report.summary.last - report.summary.first) / 1e9);
    appendHead(out, id, "sortable",
               {"Service", "Service name", "Method/event", "Name", "Type", "Count", "Rate", "Min size", "Avg size",
                "Max size", "Failures", "First", "Last"});
    for (const MessageRow& r : report.rows) {
        if (r.known == known) {
            appendMessageRow(out, r, report.origin, span);
        }
    }
    out += "</tbody></table>";
}

void appendMessages(std::string& out, const Report& report)
{
    out += "<h2 id=\"messages\">Messages</h2><p class=\"note\">Click a header to sort. Times in seconds after the "
           "first record; rates per second over the whole capture; sizes in payload bytes.</p>";
    appendMessageTable(out, report, true, "message-table");
    if (report.rows_dropped > 0) {
        appendNote(out, std::to_string(report.rows_dropped) + " messages of further kinds are not tabulated.");
    }
    out += "<h3 id=\"unknown\">Without a format</h3>";
    appendMessageTable(out, report, false, "unknown-table");
}

void appendSd(std::string& out, const Report& report, const std::map<uint16_t, std::string>& names)
{
    out += "<h2 id=\"sd\">Service discovery</h2>";
    if (report.sd.empty()) {
        appendNote(out, "No service discovery entries.");
        return;
    }
    appendNote(out, "Per service instance: offers (green, through their TTL) and finds (grey) above, "
                    "subscriptions (blue) and acks (teal) below; stops and nacks in red.");
    appendSdTimeline(out, report, names);
    appendHead(out, "sd-table", "sortable",
               {"Service", "Instance", "Entry", "Eventgroup", "Major", "TTL", "Sender", "Count", "First", "Last"});
    for (const SdInstance& instance : report.sd) {
        const auto name = names.find(instance.service);
        for (const SdRun& run : instance.runs) {
            Row row(out);
            row.text(html::serviceLabel(instance.service, name != names.end() ? name->second : std::string()));
            row.hex(instance.instance).text(run.name).number(run.eventgroup).number(run.major).number(run.ttl);
            row.text(run.source).number(run.count).time(run.first - report.origin).time(run.last - report.origin);
        }
    }
    out += "</tbody></table>";
    if (report.sd_dropped > 0) {
        appendNote(out, std::to_string(report.sd_dropped) + " entries of further service instances not shown.");
    }
    for (const SdInstance& instance : report.sd) {
        if (instance.dropped > 0) {
            appendNote(out, html::serviceLabel(instance.service, "") + ": " + std::to_string(instance.dropped) +
                                " further entries not shown.");
        }
    }
}

std::string signalTitle(const Signal& s)
{
    std::string service, method;
    html::hexId(service, s.service);
    html::hexId(method, s.method);
    return (s.service_name.empty() ? service : s.service_name) + "." + (s.method_name.empty() ? method : s.method_name) +
           "." + s.path;
}

void appendSignals(std::string& out, const Report& report)
{
    out += "<h2 id=\"signals\">Signals</h2>";
    if (report.signals.empty()) {
        appendNote(out, "No numeric values decoded.");
    }
    out += "<div class=\"signals\">";
    for (const Signal& s : report.signals) {
        out += "<div class=\"card\"><div class=\"t\">";
        appendEscaped(out, signalTitle(s));
        out += "</div><div class=\"v\">min ";
        html::real(out, s.series.min());
        out += " &middot; max ";
        html::real(out, s.series.max());
        out += " &middot; last ";
        html::real(out, s.series.last());
        out += " &middot; ";
        html::count(out, s.series.count());
        out += " values</div>";
        appendSignalPlot(out, report, s);
        out += "</div>";
    }
    out += "</div>";
    if (report.signals_dropped > 0) {
        appendNote(out, std::to_string(report.signals_dropped) +
                            " further numeric values are not plotted (--max-signals, or choose with --signal).");
    }
}

void appendErrors(std::string& out, const Report& report)
{
    out += "<h2 id=\"errors\">Errors</h2>";
    if (report.samples.empty()) {
        appendNote(out, "No failing messages.");
    }
    for (const auto& reason : report.samples) {
        out += "<h3>";
        appendEscaped(out, reason.first);
        out += "</h3>";
        for (const ErrorSample& e : reason.second) {
            std::string head = "frame " + std::to_string(e.frame) + ", ";
            html::seconds(head, e.time - report.origin);
            head += " s";
            if (e.has_header) {
                head += ", service ";
                html::hexId(head, e.header.service);
                head += ", method ";
                html::hexId(head, e.header.method);
                head += ", " + html::messageType(e.header.message_type);
            }
            head += ", " + std::to_string(e.size) + " payload bytes: " + e.text;
            out += "<div class=\"sample\">";
            appendEscaped(out, head);
            out += "<pre>";
            appendEscaped(out, e.size > e.hex.size() / 2 ? e.hex + " ..." : e.hex);
            out += "</pre></div>";
        }
    }
}

} // namespace

void writeHtml(const Report& report, std::string& out)
{
    const std::map<uint16_t, std::string> names = serviceNames(report);
    out += "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\">"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
           "script-src 'unsafe-inline'\"><title>SOME/IP capture report</title>";
    out += kStyle;
    out += kErrorScript;
    out += "</head><body><div id=\"script-errors\"></div><h1>SOME/IP capture report</h1>";
    appendSummary(out, report);
    out += "<h2 id=\"rates\">Message rate</h2>";
    appendNote(out, "Messages per second, per service.");
    appendRateChart(out, report, names);
    appendMessages(out, report);
    appendSd(out, report, names);
    appendSignals(out, report);
    appendErrors(out, report);
    out += kSortScript;
    out += "</body></html>\n";
}

} // namespace report
