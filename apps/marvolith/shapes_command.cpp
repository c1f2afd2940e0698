// Copyright Marvolith contributors.
// `marvolith shapes`: the contact sheet of the control figures, drawn by the loaded module's
// Control Helper class.
#include <cstdio>
#include <string>

#include "apps/marvolith/commands.h"
#include "apps/marvolith/shape_sheet.h"

namespace marvolith::cli {

void AddShapesCommand(CLI::App& app) {
  auto* shapes = app.add_subcommand(
      "shapes",
      "Draw every control figure of the Control Helper, labelled, on one PNG or SVG sheet");
  // Option values live as long as the program (CLI11 keeps pointers to them).
  static std::string out_value;
  shapes->add_option("--out", out_value, "Picture to write: FILE.png or FILE.svg")->required();
  shapes->callback([] {
    std::string error;
    int figures = 0;
    if (!RenderControlShapeSheet(out_value, &error, &figures)) throw CLI::RuntimeError(error, 1);
    std::printf("%d figures drawn to %s\n", figures, out_value.c_str());
  });
}

}  // namespace marvolith::cli
