// The studio command: a web server on the loopback address serving one page
// and the filtering behind it, until Ctrl-C.
#include "studio.h"

#include "display_bitmap.h"
#include "exports.h"
#include "page.h"
#include "session.h"

#include <httplib.h>

#include <chrono>
#include <csignal>
#include <malloc.h>
#include <iostream>
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
    "as PNG or TIFF. Ctrl-C stops the server.",
    {
        {"--port", nullptr, "N", "the port (default 8765; 0 picks a free one)"},
        kRegionOption,
    },
    nullptr};

namespace {

using kxstudio::BadRequest;

constexpr const char* kHost = "127.0.0.1";

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

class StudioServer {
public:
    StudioServer(const kxstudio::Session& session, httplib::Server& server) : session_(session), server_(server)
    {
        routes();
    }

private:
    // Runs a handler, turning a bad request into HTTP 400 with its reason.
    template <typename F>
    httplib::Server::Handler guarded(std::set<std::string> parameters, F body)
    {
        return [parameters, body](const httplib::Request& req, httplib::Response& res) {
            const auto refuse = [&res](const char* reason) {
                res.status = 400;
                res.set_content(reason, "text/plain; charset=utf-8");
            };
            try {
                requireParameters(req, parameters);
                body(req, res);
            } catch (const BadRequest& e) {
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

    void routes()
    {
        const kxstudio::Session& s = session_;
        server_.Get("/", guarded({}, [](const httplib::Request&, httplib::Response& res) {
                        res.set_content(kxstudio::kPageHtml, "text/html; charset=utf-8");
                    }));
        server_.Get("/api/info", guarded({}, [&s](const httplib::Request&, httplib::Response& res) {
                        res.set_content(s.infoJson(), "application/json");
                    }));
        server_.Get("/api/image.png", guarded({}, [&s](const httplib::Request&, httplib::Response& res) {
                        res.set_content(bytes(s.imagePng()), "image/png");
                    }));
        server_.Get("/api/spectrum.png", guarded({}, [&s](const httplib::Request&, httplib::Response& res) {
                        res.set_content(bytes(s.spectrumPng()), "image/png");
                    }));
        server_.Get("/api/result.bmp",
                    guarded({"filters", "preview"}, [this](const httplib::Request& req, httplib::Response& res) {
                        const auto begun = std::chrono::steady_clock::now();
                        const kxio::GreyImage result = session_.render(filtersOf(req), previewOf(req));
                        sendImage(res, bytes(kxstudio::displayBitmap(result)), "image/bmp", begun);
                    }));
        for (const auto& [extension, format] :
             {std::pair<std::string, kxio::Format>{".png", kxio::Format::Png}, {".tif", kxio::Format::Tiff}}) {
            const kxio::Format f = format;
            const std::string ext = extension;
            server_.Get("/api/export/result" + ext,
                        guarded({"filters"}, [this, f, ext](const httplib::Request& req, httplib::Response& res) {
                            const auto begun = std::chrono::steady_clock::now();
                            const kxio::GreyImage result = session_.render(filtersOf(req), false);
                            sendImage(res, bytes(kxio::encodeImage("result" + ext, result, f)),
                                      f == kxio::Format::Tiff ? "image/tiff" : "image/png", begun);
                            attachment(res, kxstudio::resultName(session_, ext));
                        }));
        }
        server_.Get("/api/export/filter.kxf",
                    guarded({"filters"}, [&s](const httplib::Request& req, httplib::Response& res) {
                        res.set_content(bytes(kxstudio::filterArchive(s, filtersOf(req))), "application/octet-stream");
                        attachment(res, kxstudio::archiveName(s));
                    }));
        server_.Get("/api/export/command",
                    guarded({"filters"}, [&s](const httplib::Request& req, httplib::Response& res) {
                        res.set_content(kxstudio::commandExport(s, filtersOf(req)), "text/plain; charset=utf-8");
                    }));
        server_.Get("/api/export/python",
                    guarded({"filters"}, [&s](const httplib::Request& req, httplib::Response& res) {
                        res.set_content(kxstudio::pythonExport(s, filtersOf(req)), "text/plain; charset=utf-8");
                    }));
    }

    const kxstudio::Session& session_;
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
    server.set_payload_max_length(64 * 1024);   // the page sends no bodies
    server.set_read_timeout(10);
    server.set_write_timeout(30);
    server.set_keep_alive_timeout(5);
    server.set_default_headers({{"Cache-Control", "no-store"},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Content-Security-Policy",
                                 "default-src 'none'; img-src 'self' blob:; connect-src 'self' blob:; "
                                 "style-src 'unsafe-inline'; script-src 'unsafe-inline'"}});
    server.set_pre_routing_handler([&port](const httplib::Request& req, httplib::Response& res) {
        if (hostAllowed(req.get_header_value("Host"), port))
            return httplib::Server::HandlerResponse::Unhandled;
        res.status = 403;
        res.set_content("this server answers only requests for " + std::string(kHost) + ":" + std::to_string(port),
                        "text/plain; charset=utf-8");
        return httplib::Server::HandlerResponse::Handled;
    });
    server.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty())
            return;   // the handler's own reason
        std::string reason = "error " + std::to_string(res.status);
        if (res.status == 404)
            reason = "no such page: " + req.method + " " + req.path;
        else if (res.status == 413)
            reason = "request too large (at most 64 KiB)";
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
    const kxstudio::Session session(in, regionOption(options));

    // Ctrl-C and SIGTERM are taken by one thread that stops the server; the
    // server's threads, started below, inherit the blocked mask.
    sigset_t stopSignals, previous;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);

    httplib::Server server;
    configure(server, port);
    StudioServer studio(session, server);
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
