#pragma once
// The studio's one page (HTML, CSS and script), embedded at build time from
// page.html.
namespace kxstudio {

extern const char* const kPageHtml;

}  // namespace kxstudio
