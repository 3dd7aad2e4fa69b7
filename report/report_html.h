// A report as one self-contained HTML page: styles, the sorting script and every chart (inline SVG)
// are in the page, which loads nothing (its content security policy forbids it). Every text that comes
// from a capture or a format file is escaped, so hostile names cannot add markup or script.
//
// The page's script marks <body data-report-ready="1"> once it ran; script errors are listed in
// #script-errors. Tables with class "sortable" sort by a click on a header, numerically by each
// cell's data-v where there is one.
#ifndef SOMEIP_REPORT_REPORT_HTML_H
#define SOMEIP_REPORT_REPORT_HTML_H

#include <string>
#include <string_view>

#include "report_model.h"

namespace report {

// Appends `text` with &, <, >, " and ' as character references.
void appendEscaped(std::string& out, std::string_view text);

// Appends the whole page to `out`.
void writeHtml(const Report& report, std::string& out);

} // namespace report

#endif // SOMEIP_REPORT_REPORT_HTML_H
