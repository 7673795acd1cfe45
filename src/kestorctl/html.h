// Pages of HTML. Texts are UTF-8 and data: nothing in them becomes markup.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kestorctl {

// As text, or as the value of an attribute in double quotation marks.
std::string Escaped(const std::string& text);

std::string Link(const std::string& target, const std::string& text);

// A whole page. `root` leads to the folder of the style, "" or "../"; `body` is markup, below a heading of the title.
std::string HtmlPage(const std::string& root, const std::string& title, const std::string& body);

// Values with their names as a list, lists of objects as tables under headings; `level` of the headings.
std::string HtmlOf(const nlohmann::ordered_json& object, int level);

extern const char* const kBookStyle;
extern const char* const kBookSearch;

}  // namespace kestorctl
