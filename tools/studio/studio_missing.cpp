// The studio command of a tool built without cpp-httplib: it says so.
#include "studio.h"

#include "../commands.h"

namespace kxcli {

const CommandTable kStudioCommand{"studio", "studio IMAGE [--port N] [--region X,Y,W,H]",
                                  "Serves a filter designer for IMAGE in the browser (needs cpp-httplib at build "
                                  "time).",
                                  {}, nullptr};

int runStudio(const std::vector<std::string>&)
{
    throw CommandError("this kxfreq was built without cpp-httplib (Debian: libcpp-httplib-dev): no studio");
}

}  // namespace kxcli
