#include "Host/Page.h"

#include <cmath>
#include <cstdint>

#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

constexpr std::string_view beforeTitle = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>)html";

constexpr std::string_view style = R"html(</title>
<style>
:root {
  --page: #f5f3ee; --card: #fff; --line: #e3dfd6; --text: #1d2528; --soft: #566268;
  --kind0: #12595e; --kind1: #2f97b8; --kind2: #c9781a; --kind3: #8a7bb5;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #12171a; --card: #1b2124; --line: #2e373b; --text: #e9eef0; --soft: #9fadb3;
    --kind0: #4fd1b5; --kind1: #5a9fd4; --kind2: #e0a24a; --kind3: #a191cf;
  }
}
* { box-sizing: border-box; margin: 0; }
body {
  background: var(--page); color: var(--text); -webkit-text-size-adjust: 100%;
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", sans-serif;
}
main { max-width: 62rem; margin: 0 auto;
  padding: clamp(1.25rem, 5vw, 3.5rem) clamp(1rem, 4vw, 2rem); }
header { margin-bottom: 2rem; }
.brand { color: var(--soft); font-size: .9375rem; display: flex; align-items: center; gap: .5rem; }
.brand svg { width: 1.25rem; height: 1.25rem; }
h1 { font-size: clamp(2.25rem, 8vw, 4rem); line-height: 1.1; letter-spacing: -.03em;
  margin: 1.25rem 0 .5rem; }
h1.quiet { font-size: clamp(1.75rem, 5vw, 2.25rem); }
h1 small { font-size: .45em; font-weight: 500; letter-spacing: -.01em; color: var(--soft); }
header p + h1 + p { max-width: 40rem; font-size: 1.0625rem; color: var(--soft); }
header b { color: var(--text); font-weight: 600; white-space: nowrap; }
section, dl { background: var(--card); border: 1px solid var(--line); border-radius: 14px;
  margin-top: 1rem; }
section { padding: clamp(1rem, 3.5vw, 1.75rem); }
h2 { font-size: 1.125rem; letter-spacing: -.01em; }
dl { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 14rem), 1fr)); gap: 1px;
  background: var(--line); overflow: hidden; }
dl div { background: var(--card); padding: 1.125rem clamp(1rem, 3.5vw, 1.75rem); min-width: 0; }
dt, .note { color: var(--soft); font-size: .875rem; }
dd { overflow-wrap: anywhere; }
dd b { display: block; font-size: 1.625rem; line-height: 1.3; letter-spacing: -.02em;
  font-weight: 650; }
.legend { display: flex; flex-wrap: wrap; gap: .375rem 1.5rem; list-style: none; padding: 0;
  margin: .75rem 0 1.25rem; font-size: .875rem; color: var(--soft); }
.legend b { color: var(--text); font-weight: 600; }
.legend i { display: inline-block; width: .75rem; height: .75rem; border-radius: 3px;
  margin-right: .5rem; }
.kind0 { fill: var(--kind0); background: var(--kind0); }
.kind1 { fill: var(--kind1); background: var(--kind1); }
.kind2 { fill: var(--kind2); background: var(--kind2); }
.kind3 { fill: var(--kind3); background: var(--kind3); }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums;
  font-size: .9375rem; }
th, td { text-align: right; padding: .5rem 0 .5rem .75rem; border-top: 1px solid var(--line);
  white-space: nowrap; }
thead th { border-top: 0; color: var(--soft); font-size: .8125rem; font-weight: 500;
  vertical-align: bottom; }
th:first-child { text-align: left; padding-left: 0; font-weight: 500; }
.zero { color: var(--soft); }
.track { fill: var(--line); fill-opacity: .6; }
.figures { overflow-x: auto; margin-top: .5rem; }
.figures table { table-layout: fixed; }
footer { color: var(--soft); font-size: .8125rem; margin-top: 1.5rem; }
@media (max-width: 40rem) {
  .minor { display: none; }
  h1 small { display: block; margin-top: .25rem; line-height: 1.3; }
  thead th { white-space: normal; }
  .figures table { table-layout: auto; font-size: .75rem; }
  .figures thead th { font-size: .75rem; }
  .figures td, .figures th:not(:first-child) { padding-left: .25rem; }
}
)html";

constexpr std::string_view afterStyle = R"html(</style>
</head>
<body>
<main>
<header>
<p class="brand">
<svg viewBox="0 0 20 20" aria-hidden="true">
<path d="M10 1a9 9 0 1 0 9 9 7 7 0 0 1-9-9z" class="kind0"/></svg>
Wakelatch</p>
)html";

}  // namespace

std::string page(std::string_view title, std::string_view ownStyle, const std::string& header,
                 const std::string& content, std::string_view maker, Timestamp now) {
  return std::string(beforeTitle) + escaped(title) + std::string(style) + std::string(ownStyle) +
         std::string(afterStyle) + header + "</header>\n" + content + "<footer>Made " +
         localDateAndTime(now) + " by " + escaped(maker) +
         ". This page loads nothing and runs no script.</footer>\n</main>\n</body>\n</html>\n";
}

std::string tableSection(std::string_view heading, const std::vector<std::string_view>& titles,
                         const std::vector<std::vector<std::string>>& rows,
                         const std::string& note) {
  std::string html = "<section>\n<h2 id=\"table\">" + escaped(heading) +
                     "</h2>\n<div class=\"figures\" role=\"region\" aria-labelledby=\"table\" "
                     "tabindex=\"0\">\n<table aria-labelledby=\"table\">\n<thead><tr>";
  for (const std::string_view title : titles)
    html += "<th scope=\"col\">" + escaped(title) + "</th>";
  html += "</tr></thead>\n<tbody>\n";
  for (const auto& row : rows) {
    html += "<tr><th scope=\"row\">" + row.at(0) + "</th>";
    for (std::size_t i = 1; i < row.size(); ++i) {
      const bool isZero = row[i] == "0" || row[i] == "0s";
      html += (isZero ? "<td class=\"zero\">" : "<td>") + row[i] + "</td>";
    }
    html += "</tr>\n";
  }
  return html + "</tbody>\n</table>\n</div>\n" + note + "</section>\n";
}

double axisStep(double length, int most) {
  constexpr double day = 86400;
  for (const double step : {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800,
                            14400, 21600, 43200}) {
    if (step * most >= length) return step;
  }
  return std::ceil(length / most / day) * day;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string name(std::string_view text) {
  return "<bdi>" + escaped(text) + "</bdi>";
}

std::string decimal(double value) {
  const auto hundredths = static_cast<std::int64_t>(std::llround(value * 100));
  const std::string fraction = std::to_string(hundredths % 100);
  return std::to_string(hundredths / 100) + (fraction.size() < 2 ? ".0" : ".") + fraction;
}

std::string percent(double value) {
  return decimal(value) + "%";
}

std::string attribute(std::string_view name, const std::string& value) {
  return " " + std::string(name) + "=\"" + value + "\"";
}

}  // namespace wakelatch::host
