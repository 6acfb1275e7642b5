#pragma once
// The studio's filter set taken away from the page: the filter command that
// reproduces the result, Python code doing the same with the kxfreq module,
// and the filter archive both of them load.
#include "session.h"

#include <string>
#include <vector>

namespace kxstudio {

// The names the exports use for the files they refer to, next to the image:
// "photo.png" gives "photo-filter.kxf" and "photo-filtered.png".
std::string archiveName(const Session& session);
std::string resultName(const Session& session, const std::string& extension);

// The archive bytes of the combined filter ('kxfreq filter --load' reads it).
std::vector<unsigned char> filterArchive(const Session& session, const FilterSet& filters);
// Shell commands: the one with the archive, and for a single filter the
// same with the filter's own options.
std::string commandExport(const Session& session, const FilterSet& filters);
// A Python program with the same result.
std::string pythonExport(const Session& session, const FilterSet& filters);

}  // namespace kxstudio
