#include "html.h"

#include "platform/text/text.h"

namespace kestorctl {

namespace {

using Json = nlohmann::ordered_json;

// Turns "firstPage" into "first page".
std::string Words(const std::string& name) {
  std::string words;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z') {
      words += ' ';
      words += static_cast<char>(c - 'A' + 'a');
    } else {
      words += c;
    }
  }
  return words;
}

std::string ValueText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return value.is_null() ? "" : value.dump();
}

std::string Table(const std::string& title, const Json& rows) {
  std::string table =
      "<div class=\"wide\" role=\"region\" aria-label=\"" + Escaped(title) + "\" tabindex=\"0\"><table><thead><tr>";
  for (const auto& [name, value] : rows.front().items())
    table += "<th scope=\"col\">" + Escaped(Words(name)) + "</th>";
  table += "</tr></thead><tbody>\n";
  for (const Json& row : rows) {
    table += "<tr>";
    for (const auto& [name, value] : row.items())
      table += (value.is_number() ? "<td class=\"n\">" : "<td>") + Escaped(ValueText(value)) + "</td>";
    table += "</tr>\n";
  }
  return table + "</tbody></table></div>\n";
}

}  // namespace

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text::Printable(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string Link(const std::string& target, const std::string& text) {
  return "<a href=\"" + Escaped(target) + "\">" + Escaped(text) + "</a>";
}

std::string HtmlBegin(const std::string& root, const std::string& title) {
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'self' file: data:; object-src 'none'\">\n"
         "<title>" +
         Escaped(title) + "</title>\n<link rel=\"stylesheet\" href=\"" + root + "book.css\">\n</head>\n<body>\n" +
         "<a class=\"skip\" href=\"#main\">To the text</a>\n<nav aria-label=\"Book\">" +
         Link(root + "index.html", "Reports") + ' ' + Link(root + "fields.html", "Fields") + ' ' +
         Link(root + "check.html", "Check") + "</nav>\n<main id=\"main\">\n<h1>" + Escaped(title) + "</h1>\n";
}

std::string HtmlOf(const Json& object, int level) {
  std::string values;
  std::string parts;
  const std::string digit = std::to_string(level);
  for (const auto& [name, value] : object.items()) {
    if (value.is_structured()) {
      if (value.empty()) continue;
      parts.append("<h")
          .append(digit)
          .append(">")
          .append(Escaped(Words(name)))
          .append("</h")
          .append(digit)
          .append(">\n");
      parts.append(value.is_array() ? Table(Words(name), value) : HtmlOf(value, level + 1));
    } else if (!ValueText(value).empty()) {
      values += "<dt>" + Escaped(Words(name)) + "</dt><dd>" + Escaped(ValueText(value)) + "</dd>\n";
    }
  }
  return (values.empty() ? "" : "<dl>\n" + values + "</dl>\n") + parts;
}

const char* const kBookStyle =
    R"(:root { color-scheme: light dark; }
body { margin: 0 auto; max-width: 70rem; padding: 1rem; font: 1rem/1.5 system-ui, sans-serif; color: #1a1a1a; background: #fff; overflow-wrap: anywhere; }
a { color: #0b4f9e; }
nav a { display: inline-block; padding: .5rem .75rem .5rem 0; }
.skip { position: absolute; left: -100rem; }
.skip:focus { position: static; }
table { border-collapse: collapse; }
th, td { text-align: left; vertical-align: top; padding: .3rem .8rem .3rem 0; border-bottom: 1px solid #bbb; overflow-wrap: anywhere; }
td.n { text-align: right; }
.wide { overflow-x: auto; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .2rem 1rem; }
dd { margin: 0; overflow-wrap: anywhere; }
img { max-width: 100%; height: auto; border: 1px solid #767676; background: #fff; }
input { font: inherit; padding: .4rem; min-width: 16rem; max-width: 100%; }
h2::first-letter, h3::first-letter, th::first-letter, dt::first-letter { text-transform: uppercase; }
@media (prefers-color-scheme: dark) { body { color: #eee; background: #161616; } a { color: #8cc0ff; } th, td { border-color: #555; } }
@media print { nav, .search, .skip { display: none; } }
)";

const char* const kBookSearch =
    R"('use strict';
(function () {
  var form = document.querySelector('.search');
  var box = document.getElementById('search');
  var count = document.getElementById('count');
  if (!form || !box) return;
  form.hidden = false;
  form.addEventListener('submit', function (event) { event.preventDefault(); });
  function folded(text) { return text.normalize('NFD').replace(/[\u0300-\u036f]/g, '').toLowerCase(); }
  var rows = Array.prototype.map.call(document.querySelectorAll('tbody tr'), function (row) {
    return { row: row, text: folded(row.textContent) };
  });
  function search() {
    var words = folded(box.value).split(/\s+/);
    var found = 0;
    rows.forEach(function (entry) {
      var fits = words.every(function (word) { return entry.text.indexOf(word) >= 0; });
      entry.row.hidden = !fits;
      if (fits) found++;
    });
    count.textContent = found + ' of ' + rows.length;
  }
  box.addEventListener('input', search);
  search();
})();
)";

}  // namespace kestorctl
