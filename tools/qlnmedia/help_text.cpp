// Breaks descriptions where the library would let the terminal break them.

#include "help_text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>

#include "output.h"

namespace qlnmedia {

namespace {

class WrappingFormatter final : public CLI::Formatter {
 public:
  explicit WrappingFormatter(size_t width) : width_(std::max<size_t>(width, 40)) {
    column_width(std::min<size_t>(30, width_ / 3));
  }

  std::string make_option(const CLI::Option* option, bool positional) const override {
    return Entry(make_option_name(option, positional) + make_option_opts(option), make_option_desc(option));
  }
  std::string make_subcommand(const CLI::App* sub) const override {
    return Entry(sub->get_name(), sub->get_description());
  }
  std::string make_footer(const CLI::App* app) const override {
    const std::string footer = app->get_footer();
    return footer.empty() ? std::string() : WrapText(footer, width_, 0) + "\n";
  }
  std::string make_description(const CLI::App* app) const override {
    std::string text = CLI::Formatter::make_description(app);
    if (!text.empty()) text.pop_back();
    return text.empty() ? text : WrapText(text, width_, 0) + "\n";
  }

 private:
  std::string Entry(const std::string& name, const std::string& text) const {
    std::string out = "  " + name;
    const size_t column = get_column_width();
    if (ColumnsOf(out) + 2 > column) {
      out += "\n" + std::string(column, ' ');
    } else {
      out = PadRight(out, column);
    }
    return out + WrapText(text, width_, column) + "\n";
  }

  size_t width_;
};

}  // namespace

std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter(size_t width) {
  return std::make_shared<WrappingFormatter>(width != 0 ? width : OutputWidth(stdout, 80));
}

}  // namespace qlnmedia
