// Draws pages with Cairo, and their texts with Pango.
#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cmath>
#include <map>
#include <memory>
#include <pango/pangocairo.h>

#include "page.h"
#include "platform/text/text.h"

#ifdef KESTOR_SANITIZED
// Silences reports about the drawing libraries. Pango keeps the fonts that it finds until the process ends, out of
// sight of the leak check, and searches for them in threads whose locks ThreadSanitizer does not see.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\n";
}
extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "ignore_noninstrumented_modules=1";
}
#endif

namespace preview {

namespace {

struct Release {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
  void operator()(PangoFontDescription* font) const { pango_font_description_free(font); }
};
template <typename T>
using Owned = std::unique_ptr<T, Release>;

void Check(cairo_status_t status) {
  if (status == CAIRO_STATUS_NO_MEMORY) throw std::bad_alloc();
  if (status != CAIRO_STATUS_SUCCESS) throw Failure(std::string("drawing failed: ") + cairo_status_to_string(status));
}

cairo_status_t Append(void* bytes, const unsigned char* data, unsigned int size) {
  try {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), size);
    return CAIRO_STATUS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
}

// Reads a PNG file; returns null if the name is empty.
Owned<cairo_surface_t> ReadLogo(const std::string& file) {
  if (file.empty()) return nullptr;
  Owned<cairo_surface_t> logo(cairo_image_surface_create_from_png(file.c_str()));
  if (cairo_surface_status(logo.get()) != CAIRO_STATUS_SUCCESS)
    throw Failure(file + " is no PNG file that can be read");
  return logo;
}

// Draws pages one after the other onto one surface.
class Painter {
 public:
  Painter(Owned<cairo_surface_t> surface, const std::string& logo)
      : surface_(std::move(surface)), context_(cairo_create(surface_.get())), logo_(ReadLogo(logo)) {
    Check(cairo_status(context_.get()));
    layout_.reset(pango_cairo_create_layout(context_.get()));
    pango_layout_set_single_paragraph_mode(layout_.get(), TRUE);
  }

  cairo_surface_t* Surface() const { return surface_.get(); }
  cairo_t* Context() const { return context_.get(); }

  void Draw(const Page& page) {
    cairo_set_source_rgb(Context(), 0, 0, 0);
    cairo_set_line_width(Context(), 0.5);
    for (const Rule& rule : page.rules) {
      cairo_move_to(Context(), rule.x, rule.y);
      cairo_rel_line_to(Context(), rule.width, 0);
    }
    cairo_stroke(Context());
    if (page.logo) DrawLogo(*page.logo);
    std::vector<Owned<PangoFontDescription>> fonts;
    for (const Font& font : page.fonts)
      fonts.push_back(Describe(font));
    for (const PlacedText& text : page.texts)
      DrawText(text, *fonts[text.font]);
    Check(cairo_status(Context()));
  }

 private:
  // This system lacks the family that reports usually ask for; these have the same widths.
  static std::string Families(const std::string& family) {
    const bool isUsual = family.empty() || text::EqualNoCase(family, "MS Sans Serif");
    return isUsual ? "Liberation Sans,Arimo,sans-serif" : family;
  }

  static Owned<PangoFontDescription> Describe(const Font& font) {
    Owned<PangoFontDescription> description(pango_font_description_new());
    pango_font_description_set_family(description.get(), Families(font.family).c_str());
    pango_font_description_set_absolute_size(description.get(), font.size * PANGO_SCALE);
    if (font.bold) pango_font_description_set_weight(description.get(), PANGO_WEIGHT_BOLD);
    return description;
  }

  void DrawLogo(const Box& box) {
    if (!logo_) {
      cairo_rectangle(Context(), box.x, box.y, box.width, box.height);
      cairo_move_to(Context(), box.x, box.y);
      cairo_rel_line_to(Context(), box.width, box.height);
      cairo_move_to(Context(), box.x + box.width, box.y);
      cairo_rel_line_to(Context(), -box.width, box.height);
      cairo_stroke(Context());
      return;
    }
    const double scale = std::min(box.width / cairo_image_surface_get_width(logo_.get()),
                                  box.height / cairo_image_surface_get_height(logo_.get()));
    cairo_save(Context());
    cairo_translate(Context(), box.x, box.y);
    cairo_scale(Context(), scale, scale);
    cairo_set_source_surface(Context(), logo_.get(), 0, 0);
    cairo_paint(Context());
    cairo_restore(Context());
  }

  void DrawText(const PlacedText& text, const PangoFontDescription& font) {
    pango_layout_set_font_description(layout_.get(), &font);
    pango_layout_set_text(layout_.get(), text.text.data(), static_cast<int>(text.text.size()));
    int units = 0;
    pango_layout_get_size(layout_.get(), &units, nullptr);
    const double width = static_cast<double>(units) / PANGO_SCALE;
    const double baseline = static_cast<double>(pango_layout_get_baseline(layout_.get())) / PANGO_SCALE;
    const double scale = width > text.width && width > 0 ? text.width / width : 1;
    const double free = text.width - width * scale;
    const double shift = text.align == Align::right ? free : text.align == Align::centre ? free / 2 : 0;
    cairo_save(Context());
    cairo_translate(Context(), text.x + shift, text.baseline - baseline);
    cairo_scale(Context(), scale, 1);
    cairo_move_to(Context(), 0, 0);
    pango_cairo_show_layout(Context(), layout_.get());
    cairo_restore(Context());
  }

  Owned<cairo_surface_t> surface_;
  Owned<cairo_t> context_;
  Owned<cairo_surface_t> logo_;
  Owned<PangoLayout> layout_;
};

}  // namespace

std::string DrawPng(const Page& page, const std::string& logo) {
  constexpr double kPixelsInPoint = 2;
  std::string bytes;
  Painter painter(Owned<cairo_surface_t>(cairo_image_surface_create(
                      CAIRO_FORMAT_RGB24, static_cast<int>(std::ceil(page.width * kPixelsInPoint)),
                      static_cast<int>(std::ceil(page.height * kPixelsInPoint)))),
                  logo);
  cairo_set_source_rgb(painter.Context(), 1, 1, 1);
  cairo_paint(painter.Context());
  cairo_scale(painter.Context(), kPixelsInPoint, kPixelsInPoint);
  painter.Draw(page);
  Check(cairo_surface_write_to_png_stream(painter.Surface(), Append, &bytes));
  return bytes;
}

std::string DrawSvg(const Page& page, const std::string& logo) {
  std::string bytes;
  Painter painter(Owned<cairo_surface_t>(cairo_svg_surface_create_for_stream(Append, &bytes, page.width, page.height)),
                  logo);
  cairo_set_source_rgb(painter.Context(), 1, 1, 1);
  cairo_paint(painter.Context());
  painter.Draw(page);
  cairo_surface_finish(painter.Surface());
  Check(cairo_surface_status(painter.Surface()));
  return bytes;
}

struct Pdf::State {
  State(const std::string& title, const std::string& logo)
      : painter(Owned<cairo_surface_t>(cairo_pdf_surface_create_for_stream(Append, &bytes, 1, 1)), logo) {
    cairo_pdf_surface_set_metadata(painter.Surface(), CAIRO_PDF_METADATA_TITLE, title.c_str());
  }

  std::string bytes;
  Painter painter;
};

Pdf::Pdf(const std::string& title, const std::string& logo) : state_(std::make_unique<State>(title, logo)) {}
Pdf::~Pdf() = default;

void Pdf::Add(const Page& page) {
  cairo_pdf_surface_set_size(state_->painter.Surface(), page.width, page.height);
  state_->painter.Draw(page);
  cairo_show_page(state_->painter.Context());
}

std::string Pdf::Finish() {
  cairo_surface_finish(state_->painter.Surface());
  Check(cairo_surface_status(state_->painter.Surface()));
  return std::move(state_->bytes);
}

}  // namespace preview
