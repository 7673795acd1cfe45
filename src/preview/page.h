// Pages of placed texts and rules, and how to draw them. Texts are UTF-8. Any thread may call; one thread at a time may
// use a Pdf. Throws std::bad_alloc.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace preview {

// Why a preview cannot be made; `what()` is a line for people.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ---- Pages ---------------------------------------------------------------------------------------------------------

// Lengths are in points, 72 to an inch; y grows downwards from the top of the page.
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
  std::size_t font = 0;  // index in the page's fonts
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
  double characterWidth = 0;  // the unit of column widths
  std::vector<Font> fonts;
  std::vector<PlacedText> texts;  // from top to bottom, those of a line from left to right
  std::vector<Rule> rules;        // from top to bottom
  std::optional<Box> logo;        // where the logo belongs
};

// Returns a page that was laid out for plain text as text. A rule becomes a line of dashes.
std::string PlainText(const Page& page);

// ---- Drawings ------------------------------------------------------------------------------------------------------
// Font families that the system lacks are replaced. The functions throw Failure if drawing fails.

// `logo` is the path of a PNG file; if it is empty, a crossed frame marks the place of the logo.
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
  std::string Finish();  // returns the bytes of the file; must be the last call

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace preview
