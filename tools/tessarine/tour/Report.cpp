#include "tour/Report.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

#include "Markup.hpp"

namespace tessarine::tool {
namespace {

constexpr std::string_view style = R"(
:root { color-scheme: light dark; --ink: #1d2433; --soft: #5b6577; --rule: #d9dee7; --bar: #3a6ea5; --paper: #fcfcfd; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e6e9ef; --soft: #9aa4b5; --rule: #333b49; --bar: #6fa3d8; --paper: #14181f; } }
body { font: 16px/1.55 system-ui, sans-serif; color: var(--ink); background: var(--paper);
       max-width: 46rem; margin: 3rem auto; padding: 0 1.2rem; }
h1 { font-size: 1.7rem; } h2 { font-size: 1.25rem; margin-top: 2.5rem; }
table { border-collapse: collapse; margin: 1rem 0; width: 100%; font-size: .93rem; font-variant-numeric: tabular-nums; }
th { text-align: left; color: var(--soft); font-weight: 600; }
th, td { padding: .35rem .8rem .35rem 0; border-bottom: 1px solid var(--rule); }
th:not(:first-child), td:not(:first-child) { text-align: right; padding-right: 0; }
figure { margin: 1.5rem 0; } figcaption { color: var(--soft); font-size: .9rem; }
svg { width: 100%; height: auto; } svg text { fill: var(--soft); font: 10px system-ui, sans-serif; text-anchor: middle; }
svg rect { fill: var(--bar); }
)";

}  // namespace

std::string fixed(double value, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

void Report::chapter(std::string_view title) { body_ += "<h2>" + escapedMarkup(title) + "</h2>\n"; }

void Report::text(std::string_view paragraph) {
  body_ += "<p>" + escapedMarkup(paragraph) + "</p>\n";
}

void Report::table(const std::vector<Row>& rows) {
  body_ += "<table>\n";
  bool isHead = true;
  for (const auto& row : rows) {
    body_ += "<tr>";
    for (const auto& cell : row) {
      const char* const tag = isHead ? "th" : "td";
      body_.append("<").append(tag).append(">").append(escapedMarkup(cell));
      body_.append("</").append(tag).append(">");
    }
    body_ += "</tr>\n";
    isHead = false;
  }
  body_ += "</table>\n";
}

void Report::bars(std::string_view caption,
                  const std::vector<std::pair<std::string, double>>& values) {
  constexpr double width = 640;
  constexpr double height = 130;
  double greatest = 1;
  for (const auto& [label, value] : values) greatest = std::max(greatest, value);
  const double step = width / static_cast<double>(std::max<std::size_t>(values.size(), 1));
  body_ += "<figure><svg viewBox=\"0 0 640 170\" role=\"img\">\n";
  double left = 0;
  for (const auto& [label, value] : values) {
    const double bar = height * value / greatest;
    const std::string middle = fixed(left + step / 2, 1);
    body_.append("<rect x=\"").append(fixed(left + step * 0.12, 1));
    body_.append("\" y=\"").append(fixed(18 + height - bar, 1));
    body_.append("\" width=\"").append(fixed(step * 0.76, 1));
    body_.append("\" height=\"").append(fixed(bar, 1)).append("\"/>");
    body_.append("<text x=\"").append(middle).append("\" y=\"").append(fixed(13 + height - bar, 1));
    body_.append("\">").append(fixed(value, 0)).append("</text>");
    body_.append("<text x=\"").append(middle).append("\" y=\"164\">").append(escapedMarkup(label));
    body_.append("</text>\n");
    left += step;
  }
  body_ += "</svg><figcaption>" + escapedMarkup(caption) + "</figcaption></figure>\n";
}

void Report::figure(std::string_view svg, std::string_view caption) {
  body_.append("<figure>").append(svg);
  body_.append("<figcaption>").append(escapedMarkup(caption)).append("</figcaption></figure>\n");
}

std::string Report::page(std::string_view title) const {
  std::string page = "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n";
  page.append("<meta name=\"viewport\" content=\"width=device-width\">\n<title>");
  page.append(escapedMarkup(title))
      .append("</title>\n<style>")
      .append(style)
      .append("</style></head>\n");
  page.append("<body>\n<h1>").append(escapedMarkup(title)).append("</h1>\n");
  return page.append(body_).append("</body></html>\n");
}

}  // namespace tessarine::tool
