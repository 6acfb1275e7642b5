// The studio command: a web server on the loopback address serving one page
// and the filtering behind it, until Ctrl-C.
#include "studio.h"

#include "display_bitmap.h"
#include "exports.h"
#include "page.h"
#include "session.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <malloc.h>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <set>
#include <thread>

namespace kxcli {

const CommandTable kStudioCommand{
    "studio",
    "studio IMAGE [--port N] [--region X,Y,W,H]",
    "Serves a filter designer for IMAGE on http://127.0.0.1:N/ (this computer\n"
    "only) and prints the address; open it in a browser. The page shows the\n"
    "image, its centred spectrum with the periodic components found, and the\n"
    "filtered result. Click on the spectrum to reject a pattern there (a Gabor\n"
    "reject at that frequency and angle, or a ring), drag to move it, and set\n"
    "its width with the sliders; the page exports the filter as a 'kxfreq\n"
    "filter' command, as Python code, as a filter file for --load and the result\n"
    "as PNG or TIFF. 'Open image...' on the page works on another image.\n"
    "Ctrl-C stops the server.",
    {
        {"--port", nullptr, "N", "the port (default 8765; 0 picks a free one)"},
        kRegionOption,
    },
    nullptr};

namespace {

using kxstudio::BadRequest;

constexpr const char* kHost = "127.0.0.1";
// The largest request body: an image file opened from the page (a 2048 x
// 2048 16-bit image, uncompressed, is 8 MiB).
constexpr std::size_t kMaxUpload = 16u << 20;
// The longest side of an image given on the command line: it is held in
// memory with two floating-point copies while several filters are applied
// (1 GiB at 8192 x 8192). 'kxfreq filter' streams larger ones.
constexpr long kMaxStudioSide = 8192;

// The query parameters each route takes; anything else is refused.
void requireParameters(const httplib::Request& req, const std::set<std::string>& allowed)
{
    std::set<std::string> seen;
    for (const auto& [name, value] : req.params) {
        if (!allowed.count(name))
            throw BadRequest("unknown parameter '" + name + "'");
        if (!seen.insert(name).second)
            throw BadRequest("parameter '" + name + "' given twice");
    }
}

kxstudio::FilterSet filtersOf(const httplib::Request& req)
{
    return kxstudio::parseFilterSet(req.get_param_value("filters"));
}

bool previewOf(const httplib::Request& req)
{
    const std::string v = req.has_param("preview") ? req.get_param_value("preview") : "0";
    if (v != "0" && v != "1")
        throw BadRequest("preview must be 0 or 1, not '" + v + "'");
    return v == "1";
}

std::string bytes(const std::vector<unsigned char>& data) { return std::string(data.begin(), data.end()); }

void attachment(httplib::Response& res, const std::string& name)
{
    res.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
}

// The name an opened image is known by in the exports and their file names:
// a file name without a folder, quotes or control characters.
std::string uploadName(const httplib::Request& req)
{
    const std::string name = req.has_param("name") ? req.get_param_value("name") : "upload.png";
    const auto plainCharacter = [](unsigned char c) { return c >= 0x20 && c != 0x7f && !std::strchr("/\\\"", c); };
    if (name.empty() || name.size() > 255 || name == "." || name == ".." ||
        !std::all_of(name.begin(), name.end(), plainCharacter))
        throw BadRequest("name must be a file name without a folder, quotes or control characters");
    return name;
}

class StudioServer {
public:
    StudioServer(std::shared_ptr<const kxstudio::Session> session, httplib::Server& server)
        : session_(std::move(session)), server_(server)
    {
        routes();
    }

private:
    using Body = std::function<void(const kxstudio::Session&, const httplib::Request&, httplib::Response&)>;

    // The image being worked on; a request keeps the one it started with.
    std::shared_ptr<const kxstudio::Session> current() const
    {
        const std::lock_guard<std::mutex> lock(sessionMutex_);
        return session_;
    }

    // Runs a handler on the current image, turning a bad request into HTTP
    // 400 with its reason.
    httplib::Server::Handler guarded(std::set<std::string> parameters, Body body)
    {
        return [this, parameters, body](const httplib::Request& req, httplib::Response& res) {
            const auto refuse = [&res](const char* reason) {
                res.status = 400;
                res.set_content(reason, "text/plain; charset=utf-8");
            };
            try {
                requireParameters(req, parameters);
                body(*current(), req, res);
            } catch (const BadRequest& e) {
                refuse(e.what());
            } catch (const kxio::ImageError& e) {   // an opened image that cannot be read
                refuse(e.what());
            } catch (const kxException& e) {   // the library's message about a value
                refuse(e.what());
            }
        };
    }

    // An image in the body, with the time it took since `begun`.
    static void sendImage(httplib::Response& res, std::string body, const char* type,
                          std::chrono::steady_clock::time_point begun)
    {
        res.body = std::move(body);
        res.set_header("Content-Type", type);
        const auto ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begun).count();
        res.set_header("X-Render-Milliseconds", std::to_string(static_cast<long>(ms)));
    }

    // Another image to work on, its file's bytes in the body; the one before
    // stays when it cannot be read.
    void open(const httplib::Request& req, httplib::Response& res)
    {
        const std::string name = uploadName(req);
        kxio::ReadLimits limits;
        // Larger images are tiled, which the upload limit leaves to files given at start.
        limits.hint = "; start the studio on the file itself (kxfreq studio IMAGE, with --region X,Y,W,H "
                      "above " + std::to_string(kMaxStudioSide) + " a side)";
        kxio::GreyImage image = kxio::readImageFromMemory(reinterpret_cast<const unsigned char*>(req.body.data()),
                                                          req.body.size(), name, kxio::Region{}, limits);
        auto session = std::make_shared<const kxstudio::Session>(name, kxio::Region{}, std::move(image));
        res.set_content(session->infoJson(), "application/json");
        const std::lock_guard<std::mutex> lock(sessionMutex_);
        session_ = std::move(session);
    }

    void routes()
    {
        using kxstudio::Session;
        using Request = httplib::Request;
        using Response = httplib::Response;
        server_.Get("/", guarded({}, [](const Session&, const Request&, Response& res) {
                        res.set_content(kxstudio::kPageHtml, "text/html; charset=utf-8");
                    }));
        server_.Get("/api/info", guarded({}, [](const Session& s, const Request&, Response& res) {
                        res.set_content(s.infoJson(), "application/json");
                    }));
        server_.Post("/api/image", guarded({"name"}, [this](const Session&, const Request& req, Response& res) {
                         open(req, res);
                     }));
        // v: any value, so that the page can ask anew after opening an image.
        server_.Get("/api/image.png", guarded({"v"}, [](const Session& s, const Request&, Response& res) {
                        res.set_content(bytes(s.imagePng()), "image/png");
                    }));
        server_.Get("/api/spectrum.png", guarded({"v"}, [](const Session& s, const Request&, Response& res) {
                        res.set_content(bytes(s.spectrumPng()), "image/png");
                    }));
        server_.Get("/api/result.bmp",
                    guarded({"filters", "preview"}, [](const Session& s, const Request& req, Response& res) {
                        const auto begun = std::chrono::steady_clock::now();
                        const kxio::GreyImage result = s.render(filtersOf(req), previewOf(req));
                        sendImage(res, bytes(kxstudio::displayBitmap(Session::forDisplay(result))), "image/bmp", begun);
                    }));
        for (const auto& [extension, format] :
             {std::pair<std::string, kxio::Format>{".png", kxio::Format::Png}, {".tif", kxio::Format::Tiff}}) {
            const kxio::Format f = format;
            const std::string ext = extension;
            server_.Get("/api/export/result" + ext,
                        guarded({"filters"}, [f, ext](const Session& s, const Request& req, Response& res) {
                            const auto begun = std::chrono::steady_clock::now();
                            const kxio::GreyImage result = s.render(filtersOf(req), false);
                            sendImage(res, bytes(kxio::encodeImage("result" + ext, result, f)),
                                      f == kxio::Format::Tiff ? "image/tiff" : "image/png", begun);
                            attachment(res, kxstudio::resultName(s, ext));
                        }));
        }
        server_.Get("/api/export/filter.kxf",
                    guarded({"filters"}, [](const Session& s, const Request& req, Response& res) {
                        res.set_content(bytes(kxstudio::filterArchive(s, filtersOf(req))), "application/octet-stream");
                        attachment(res, kxstudio::archiveName(s));
                    }));
        server_.Get("/api/export/command", guarded({"filters"}, [](const Session& s, const Request& req, Response& res) {
                        res.set_content(kxstudio::commandExport(s, filtersOf(req)), "text/plain; charset=utf-8");
                    }));
        server_.Get("/api/export/python", guarded({"filters"}, [](const Session& s, const Request& req, Response& res) {
                        res.set_content(kxstudio::pythonExport(s, filtersOf(req)), "text/plain; charset=utf-8");
                    }));
    }

    std::shared_ptr<const kxstudio::Session> session_;
    mutable std::mutex sessionMutex_;
    httplib::Server& server_;
};

// Requests must name this server as their host: a page elsewhere that
// rebinds a name of its own to 127.0.0.1 gets nothing.
bool hostAllowed(const std::string& host, int port)
{
    const std::string suffix = ":" + std::to_string(port);
    return host == kHost + suffix || host == "localhost" + suffix;
}

void configure(httplib::Server& server, int& port)
{
    server.new_task_queue = [] { return new httplib::ThreadPool(8); };
    // The library's default adds SO_REUSEPORT, which would let a second
    // server share the port; a port in use must be refused instead.
    server.set_socket_options([](socket_t sock) {
        const int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    server.set_payload_max_length(kMaxUpload);   // an opened image is the only body
    server.set_read_timeout(10);
    server.set_write_timeout(30);
    server.set_keep_alive_timeout(5);
    server.set_default_headers({{"Cache-Control", "no-store"},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Content-Security-Policy",
                                 "default-src 'none'; img-src 'self' blob:; connect-src 'self' blob:; "
                                 "style-src 'unsafe-inline'; script-src 'unsafe-inline'"}});
    server.set_pre_routing_handler([&port](const httplib::Request& req, httplib::Response& res) {
        if (!hostAllowed(req.get_header_value("Host"), port)) {
            res.status = 403;
            res.set_content("this server answers only requests for " + std::string(kHost) + ":" +
                                std::to_string(port),
                            "text/plain; charset=utf-8");
            return httplib::Server::HandlerResponse::Handled;
        }
        // A form's body would be read as parameters, not as the file.
        if (req.get_header_value("Content-Type").rfind("application/x-www-form-urlencoded", 0) == 0) {
            res.status = 415;
            res.set_content("send an image file as its bytes (application/octet-stream), not as a form",
                            "text/plain; charset=utf-8");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    server.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty())
            return;   // the handler's own reason
        std::string reason = "error " + std::to_string(res.status);
        if (res.status == 404)
            reason = "no such page: " + req.method + " " + req.path;
        else if (res.status == 413)
            reason = "request too large (at most " + std::to_string(kMaxUpload >> 20) + " MiB)";
        else if (res.status == 414)
            reason = "address too long";
        res.set_content(reason, "text/plain; charset=utf-8");
    });
    server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr ep) {
        res.status = 500;
        try {
            std::rethrow_exception(ep);
        } catch (const std::exception& e) {
            res.set_content(std::string("internal error: ") + e.what(), "text/plain; charset=utf-8");
        } catch (...) {
            res.set_content("internal error", "text/plain; charset=utf-8");
        }
    });
}

}  // namespace

int runStudio(const std::vector<std::string>& args)
{
    const Options options(kStudioCommand, args);
    const std::string in = singleInput(options, "studio");
    int port = static_cast<int>(options.integer("--port", 8765, 0, 65535));
    // A full-size request allocates a dozen buffers of the padded size;
    // served from mmap each would be zeroed page by page by the kernel on
    // every request (half of its time at 2048 x 2048). Kept in the heap,
    // freed buffers are reused.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    const kxio::Region region = regionOption(options);
    kxio::ReadLimits limits;
    limits.maxSide = kMaxStudioSide;
    limits.hint = " by the studio, which holds it in memory; start it with --region X,Y,W,H to work on a part";
    auto session =
        std::make_shared<const kxstudio::Session>(in, region, kxio::readImage(in, region, limits, printNote));

    // Ctrl-C and SIGTERM are taken by one thread that stops the server; the
    // server's threads, started below, inherit the blocked mask.
    sigset_t stopSignals, previous;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);

    httplib::Server server;
    configure(server, port);
    StudioServer studio(std::move(session), server);
    const bool bound = port == 0 ? (port = server.bind_to_any_port(kHost)) > 0 : server.bind_to_port(kHost, port);
    if (!bound) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        throw CommandError("cannot listen on " + std::string(kHost) + ":" + std::to_string(port) +
                           " (in use?); --port 0 picks a free port");
    }
    std::thread watcher([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        server.stop();
    });
    std::cout << "kxfreq studio: http://" << kHost << ":" << port << "/ (" << in << ", Ctrl-C stops)" << std::endl;
    server.listen_after_bind();
    pthread_kill(watcher.native_handle(), SIGTERM);   // wakes the watcher when the server ended by itself
    watcher.join();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    std::cout << "kxfreq studio: stopped" << std::endl;
    return 0;
}

}  // namespace kxcli
