// Pages of HTML. Texts are UTF-8 and data: nothing in them becomes markup.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kestorctl {

// Escapes a text, as content of an element or as the value of an attribute in double quotation marks.
std::string Escaped(const std::string& text);

std::string Link(const std::string& target, const std::string& text);

// The markup before and after the body of a page, itself markup. `root` leads to the folder of the style sheet: "" or
// "../". The title is also the heading above the body.
std::string HtmlBegin(const std::string& root, const std::string& title);
constexpr const char* kHtmlEnd = "</main>\n</body>\n</html>\n";

// Renders values with their names as a list, and lists of objects as tables under headings of this level.
std::string HtmlOf(const nlohmann::ordered_json& object, int level);

// What the pages of a book share. The search box stays hidden in a browser without scripts.
constexpr const char* kBookSearchBox =
    "<form class=\"search\" role=\"search\" hidden><label for=\"search\">Search</label> "
    "<input id=\"search\" type=\"search\" autocomplete=\"off\"> <output id=\"count\" for=\"search\"></output></form>\n";
extern const char* const kBookStyle;
extern const char* const kBookSearch;

}  // namespace kestorctl
