#pragma once
// kxfreq studio: design a filter on an image in the browser.
#include "../options.h"

#include <string>
#include <vector>

namespace kxcli {

extern const CommandTable kStudioCommand;
int runStudio(const std::vector<std::string>& args);

}  // namespace kxcli
