// Pages of HTML. Texts are UTF-8 and data: nothing in them becomes markup.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kestorctl {

// As text, or as the value of an attribute in double quotation marks.
std::string Escaped(const std::string& text);

std::string Link(const std::string& target, const std::string& text);

// What stands in front of the body of a page, and behind. `root` leads to the folder of the style, "" or "../". The
// body is markup, below a heading of the title.
std::string HtmlBegin(const std::string& root, const std::string& title);
constexpr const char* kHtmlEnd = "</main>\n</body>\n</html>\n";

// Values with their names as a list, lists of objects as tables under headings; `level` of the headings.
std::string HtmlOf(const nlohmann::ordered_json& object, int level);

// What the pages of a book share. Without scripts the box is not seen.
constexpr const char* kBookSearchBox =
    "<form class=\"search\" role=\"search\" hidden><label for=\"search\">Search</label> "
    "<input id=\"search\" type=\"search\" autocomplete=\"off\"> <output id=\"count\" for=\"search\"></output></form>\n";
extern const char* const kBookStyle;
extern const char* const kBookSearch;

}  // namespace kestorctl
