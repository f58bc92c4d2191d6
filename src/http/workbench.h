// The web workbench's files, built into the program (web/ in the source tree).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mrpcalc::http {

struct WorkbenchFile {
  std::string path;  // "index.html", "app.js", ...
  std::string_view content;
  std::string content_type;
};

const std::vector<WorkbenchFile>& WorkbenchFiles();

}  // namespace mrpcalc::http
