// Pages of placed texts and rules, and their drawings. Texts are UTF-8. From any thread, a Pdf by one at a time; throws
// std::bad_alloc.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace preview {

// Why there is nothing to see; `what()` is a line for people.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---- Pages ---------------------------------------------------------------------------------------------------------

// Lengths are points, of which 72 make an inch; y grows downwards from the top of the page.
struct Font {
  std::string family;
  double size = 10;
  bool bold = false;
};

enum class Align { left, right, centre };

// A text on one line, within its box; a text too long for the box is drawn narrower.
struct PlacedText {
  double x = 0;
  double baseline = 0;
  double width = 0;
  Align align = Align::left;
  std::size_t font = 0;  // its place among the page's fonts
  std::string text;
};

struct Rule {
  double x = 0;
  double y = 0;
  double width = 0;
};

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

struct Page {
  double width = 0;
  double height = 0;
  double characterWidth = 0;  // that columns are counted in
  std::vector<Font> fonts;
  std::vector<PlacedText> texts;  // from top to bottom, those of a line from left to right
  std::vector<Rule> rules;        // from top to bottom
  std::optional<Box> logo;        // where it belongs
};

// A page that was laid out for plain text. A rule is a line of signs.
std::string PlainText(const Page& page);

// ---- Drawings ------------------------------------------------------------------------------------------------------
// Families that the system lacks are replaced by what it has instead. Throw Failure when drawing fails.

// A PNG file for the place of the logo; empty: a frame.
std::string DrawPng(const Page& page, const std::string& logo);
std::string DrawSvg(const Page& page, const std::string& logo);

// A PDF of any number of pages.
class Pdf {
 public:
  Pdf(const std::string& title, const std::string& logo);
  ~Pdf();
  Pdf(const Pdf&) = delete;
  Pdf& operator=(const Pdf&) = delete;

  void Add(const Page& page);
  std::string Finish();  // the file's bytes; nothing else is called afterwards

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace preview
