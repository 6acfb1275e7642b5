"""The studio's HTTP server on the loopback address: every endpoint, the
exports reproducing the page's result with the tool, bad parameters,
oversized requests, unknown paths, concurrent requests and Ctrl-C."""
import http.client
import json
import os
import shlex
import subprocess
import sys
import threading
import urllib.parse

import pytest

import studio_support as support


def result_path(filters, preview=0):
    return "/api/result.bmp?filters=%s&preview=%d" % (urllib.parse.quote(filters), preview)


def shown(studio, filters, preview=0):
    """The pixels the page shows for the filters."""
    status, headers, body = studio.get(result_path(filters, preview))
    assert status == 200 and headers["Content-Type"] == "image/bmp", body[:200]
    return support.read_bmp(body)


def raw_request(studio, method, path, body=None, headers=None):
    """A request sent as it is (no normalising of the path)."""
    connection = http.client.HTTPConnection("127.0.0.1", studio.port, timeout=30)
    connection.request(method, path, body=body, headers=headers or {})
    response = connection.getresponse()
    data = response.read()
    connection.close()
    return response.status, data.decode("utf-8", "replace")


def peak_filter(studio, sigma=0.01):
    """A Gabor reject at the strongest component the server found."""
    info = json.loads(studio.get("/api/info")[2])
    c = info["components"][0]
    return "g,%s,%s,%s,%s,0,0,1" % (round(c["frequency"], 5), round(c["angle"], 2), sigma, sigma)


def test_info_describes_the_image_and_finds_the_stripes(studio):
    status, headers, body = studio.get("/api/info")
    assert status == 200 and headers["Content-Type"] == "application/json"
    info = json.loads(body)
    assert (info["width"], info["height"], info["bits"]) == (300, 240, 8)
    assert (info["paddedWidth"], info["paddedHeight"]) == (512, 256)
    assert info["previewFactor"] == 1
    assert info["spectrumHigh"] > info["spectrumLow"]
    assert len(info["colormap"]) == 256 and info["colormap"][0] != info["colormap"][255]
    strongest = info["components"][0]
    assert abs(strongest["period"] - 9) < 0.1
    assert abs(strongest["angle"] - 30) < 1


def test_page_is_one_self_contained_document(studio):
    status, headers, body = studio.get("/")
    page = body.decode()
    assert status == 200 and headers["Content-Type"].startswith("text/html")
    assert "<canvas" in page and "<script>" in page
    for external in ('src="http', "src='http", 'href="http', "@import", "url(http"):
        assert external not in page
    assert "default-src 'none'" in headers["Content-Security-Policy"]


def test_image_is_the_input(studio, striped):
    status, headers, body = studio.get("/api/image.png")
    assert status == 200 and headers["Content-Type"] == "image/png"
    assert support.read_png(body)[3] == striped


def test_spectrum_picture_has_the_padded_size(studio):
    status, _, body = studio.get("/api/spectrum.png")
    width, height, bits, rows = support.read_png(body)
    assert status == 200 and (width, height, bits) == (512, 256, 8)
    assert max(max(r) for r in rows) == 255 and min(min(r) for r in rows) == 0


def test_result_without_filters_is_the_image(studio, striped):
    assert shown(studio, "")[3] == striped   # forward and back, rounded


def test_notch_on_the_peak_removes_the_stripes(studio, striped):
    status, headers, body = studio.get(result_path(peak_filter(studio)))
    assert status == 200 and int(headers["X-Render-Milliseconds"]) >= 0
    rows = support.read_bmp(body)[3]
    clean = support.read_png_file(os.path.join(support.DATA, "photo.png"))[3]
    def rms(a):
        n = len(a) * len(a[0])
        return (sum((p - q) ** 2 for ra, rc in zip(a, clean) for p, q in zip(ra, rc)) / n) ** 0.5
    assert rms(striped) > 9
    assert rms(rows) < 0.5 * rms(striped)


def test_preview_of_a_small_image_is_the_full_result(studio):
    f = peak_filter(studio)
    assert studio.get(result_path(f, 1))[2] == studio.get(result_path(f, 0))[2]


def exported_commands(studio, filters, workdir):
    """The tool's commands of the command export, the filter file saved."""
    query = "?filters=" + urllib.parse.quote(filters)
    status, _, text = studio.get("/api/export/command" + query)
    assert status == 200
    commands = [line for line in text.decode().splitlines() if line.startswith("kxfreq filter ")]
    args = shlex.split(commands[0])
    status, headers, archive = studio.get("/api/export/filter.kxf" + query)
    assert status == 200
    name = args[args.index("--load") + 1]
    assert 'filename="%s"' % name in headers["Content-Disposition"]
    (workdir / name).write_bytes(archive)
    return commands


@pytest.mark.parametrize("filters", [
    "g,0.11111,30,0.01,0.01,0,0,1",
    "b,0.2,0.01,0.005,2",
    "g,0.11111,30,0.02,0.01,0.003,0,1;b,0.3,0.01,0,1;g,0.05,-60,0.005,0.005,0,0,0",
    "",
])
def test_exported_commands_give_the_page_result(studio, workdir, filters):
    page = shown(studio, filters)[3]
    commands = exported_commands(studio, filters, workdir)
    assert len(commands) == (2 if filters.count(",") and ";" not in filters else 1)
    for command in commands:
        args = shlex.split(command)
        run = support.run_tool(*args[1:], cwd=str(workdir))
        assert run.returncode == 0, run.stderr
        output = workdir / args[args.index("-o") + 1]
        assert support.read_png_file(str(output))[3] == page, command
        output.unlink()


def test_exported_images_are_the_tools_files(studio, workdir):
    f = peak_filter(studio, 0.015)
    query = "?filters=" + urllib.parse.quote(f)
    status, headers, png = studio.get("/api/export/result.png" + query)
    assert status == 200 and 'filename="striped-filtered.png"' in headers["Content-Disposition"]
    assert support.read_png(png)[3] == shown(studio, f)[3]
    status, headers, tif = studio.get("/api/export/result.tif" + query)
    assert status == 200 and headers["Content-Type"] == "image/tiff" and tif[:4] in (b"II*\0", b"MM\0*")
    (workdir / "striped-filter.kxf").write_bytes(studio.get("/api/export/filter.kxf" + query)[2])
    run = support.run_tool("filter", "striped.pgm", "-o", "tool.tif", "--load", "striped-filter.kxf",
                           cwd=str(workdir))
    assert run.returncode == 0, run.stderr
    assert (workdir / "tool.tif").read_bytes() == tif


def test_exported_python_gives_the_page_result(studio, workdir, striped):
    numpy = pytest.importorskip("numpy")
    probe = subprocess.run([sys.executable, "-c", "import kxfreq"], capture_output=True, text=True)
    if probe.returncode != 0:
        pytest.skip("the kxfreq Python module is not importable here: " + probe.stderr.strip()[-200:])
    f = "g,0.11111,30,0.02,0.01,0.003,0,1;b,0.3,0.01,0,1"
    query = "?filters=" + urllib.parse.quote(f)
    (workdir / "striped-filter.kxf").write_bytes(studio.get("/api/export/filter.kxf" + query)[2])
    status, _, code = studio.get("/api/export/python" + query)
    assert status == 200
    (workdir / "studio_export.py").write_bytes(code)
    numpy.save(str(workdir / "striped.npy"), numpy.array(striped, dtype=numpy.uint8))
    run = subprocess.run([sys.executable, "studio_export.py", "striped.npy", "out.npy"], cwd=str(workdir),
                         capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stderr
    result = numpy.load(str(workdir / "out.npy"))
    page = shown(studio, f)[3]
    assert result.dtype == numpy.uint8 and result.tolist() == page


@pytest.mark.parametrize("query, reason", [
    ("filters=g,0.7,30,0.01,0.01,0,0,1", "filter 1: Frequency must be between 0.0 and 0.5."),
    ("filters=b,0.2,-0.01,0,0", "filter 1: Sigma"),
    ("filters=b,0.2,0.01,0,-1", "filter 1: DC Protection Radius cannot be negative."),
    ("filters=g,0.1,0,0.01,0.01,0,0,1;b,0.2,0.01,0,400", "filter 2: Coordinates are out of bounds"),
    ("filters=g,0.1,30", "filter 1: expected g,F,ANGLE,S1,S2,P1,P2,DC"),
    ("filters=x", "filter 1: expected"),
    ("filters=g,nan,30,0.01,0.01,0,0,1", "'nan' is not a finite number"),
    ("filters=g,0.1,30,0.01,0.01,0,0,1.5", "'1.5' is not a whole number"),
    ("filters=" + ";".join(["b,0.2,0.01,0,0"] * 33), "at most 32 filters, not 33"),
    ("filters=&preview=2", "preview must be 0 or 1, not '2'"),
    ("filters=&colour=red", "unknown parameter 'colour'"),
    ("filters=&filters=b,0.2,0.01,0,0", "parameter 'filters' given twice"),
])
@pytest.mark.parametrize("path", ["/api/result.bmp", "/api/export/command"])
def test_bad_parameters_get_400_with_the_reason(studio, path, query, reason):
    if path != "/api/result.bmp" and "preview" in query:
        query = query.replace("preview", "other")
        reason = "unknown parameter 'other'"
    status, headers, body = studio.get(path + "?" + query)
    assert status == 400 and headers["Content-Type"].startswith("text/plain")
    assert reason in body.decode()


def test_every_export_refuses_bad_filters(studio):
    for path in ("/api/export/python", "/api/export/filter.kxf", "/api/export/result.png",
                 "/api/export/result.tif", "/api/result.bmp"):
        status, _, body = studio.get(path + "?filters=b,0.9,0.01,0,0")
        assert status == 400 and b"Frequency must be between 0.0 and 0.5." in body, path
    status, _, body = studio.get("/api/info?filters=")
    assert status == 400 and b"unknown parameter 'filters'" in body


@pytest.mark.parametrize("path", ["/nothing", "/../etc/passwd", "/api/../../etc/passwd", "/%2e%2e/etc/passwd",
                                  "/api/image.png/..", "/api", "/api/export/filter.bin", "//etc/passwd",
                                  "/index.html"])
def test_unknown_paths_get_404(studio, path):
    status, body = raw_request(studio, "GET", path)
    assert status == 404 and "no such page" in body


def test_other_methods_are_refused(studio):
    for method in ("POST", "PUT", "DELETE"):
        status, body = raw_request(studio, method, "/api/result.bmp", body=b"x")
        assert status in (404, 405) and body, method


def test_oversized_requests_are_refused(studio):
    long_filters = ";".join(["g,0.1,30,0.01,0.01,0,0,1"] * 400)
    status, _, _ = studio.get("/api/result.bmp?filters=" + long_filters)
    assert status == 414
    status, body = raw_request(studio, "POST", "/api/image?name=big.pgm", body=b"x" * (17 << 20),
                               headers={"Content-Type": "application/octet-stream"})
    assert status == 413 and "too large (at most 16 MiB)" in body
    status, _ = raw_request(studio, "GET", "/", headers={"X-Long": "y" * 20000})
    assert status in (400, 431)


def test_requests_for_another_host_are_refused(studio):
    status, body = raw_request(studio, "GET", "/api/info", headers={"Host": "example.com:%d" % studio.port})
    assert status == 403 and "only requests for 127.0.0.1" in body
    status, _ = raw_request(studio, "GET", "/api/info", headers={"Host": "localhost:%d" % studio.port})
    assert status == 200


def test_concurrent_requests_give_the_results_of_single_ones(studio):
    filters = ["", "g,0.11111,30,0.01,0.01,0,0,1", "b,0.2,0.01,0.005,2", "g,0.2,-30,0.02,0.02,0,0,0"]
    expected = {(f, p): studio.get(result_path(f, p))[2] for f in filters for p in (0, 1)}
    failures = []

    def worker(seed):
        for i in range(6):
            f, p = filters[(seed + i) % len(filters)], (seed + i) % 2
            status, _, body = studio.get(result_path(f, p))
            if status != 200 or body != expected[(f, p)]:
                failures.append((f, p, status))
            if studio.get("/api/info")[0] != 200:
                failures.append(("info", seed))

    threads = [threading.Thread(target=worker, args=(s,)) for s in range(12)]
    for t in threads:
        t.start()
    for t in threads:
        t.join(timeout=120)
    assert not any(t.is_alive() for t in threads)
    assert failures == []


def test_preview_of_a_large_image_is_reduced(workdir):
    width, height = 1100, 600
    rows = [[(x * 7 + y * 3) % 256 for x in range(width)] for y in range(height)]
    from conftest import write_pgm
    write_pgm(str(workdir / "wide.pgm"), rows)
    server = support.Studio("wide.pgm", cwd=str(workdir))
    try:
        info = json.loads(server.get("/api/info")[2])
        assert info["previewFactor"] == 3 and (info["paddedWidth"], info["paddedHeight"]) == (2048, 1024)
        preview = shown(server, "b,0.1,0.01,0,1", 1)
        full = shown(server, "b,0.1,0.01,0,1", 0)
        assert preview[:2] == (366, 200) and full[:2] == (1100, 600)
        # A notch beyond what the reduced image holds is left out of the preview only.
        assert shown(server, "g,0.4,0,0.01,0.01,0,0,1", 1)[:2] == (366, 200)
    finally:
        assert server.stop()[0] == 0


def test_sixteen_bit_images_keep_their_depth(workdir):
    from conftest import write_pgm
    rows = [[(x * 300 + y * 17) % 65536 for x in range(40)] for y in range(30)]
    write_pgm(str(workdir / "deep.pgm"), rows, bits=16)
    server = support.Studio("deep.pgm", cwd=str(workdir))
    try:
        assert json.loads(server.get("/api/info")[2])["bits"] == 16
        assert support.read_png(server.get("/api/image.png")[2])[2:] == (16, rows)
        # Shown at 8 bits, exported at 16.
        assert shown(server, "")[3] == [[(v * 255 + 32767) // 65535 for v in row] for row in rows]
        exported = support.read_png(server.get("/api/export/result.png?filters=")[2])
        assert exported[2:] == (16, rows)
    finally:
        server.stop()


def test_ctrl_c_stops_the_server(workdir, striped):
    server = support.Studio("striped.pgm", cwd=str(workdir))
    assert server.get("/api/info")[0] == 200
    status, out, err = server.stop()
    assert status == 0 and "stopped" in out and err == ""


def test_bad_start_is_one_line_and_a_status(workdir, striped):
    (workdir / "notes.txt").write_text("not an image")
    for args, message in [(["missing.png"], "missing.png"), (["notes.txt"], "notes.txt"),
                          (["striped.pgm", "--port", "70000"], "--port"),
                          (["striped.pgm", "--region", "0,0,4000,10"], "region")]:
        run = support.run_tool("studio", *args, cwd=str(workdir))
        assert run.returncode != 0 and message in run.stderr and run.stdout == "", args


def test_a_port_in_use_is_reported(studio, workdir):
    run = support.run_tool("studio", "striped.pgm", "--port", str(studio.port), cwd=str(workdir))
    assert run.returncode == 1 and "cannot listen on 127.0.0.1:%d" % studio.port in run.stderr


def test_a_region_is_carried_into_the_exports(workdir, striped):
    server = support.Studio("striped.pgm", cwd=str(workdir), extra=("--region", "10,20,200,100"))
    try:
        info = json.loads(server.get("/api/info")[2])
        assert (info["width"], info["height"], info["paddedWidth"], info["paddedHeight"]) == (200, 100, 256, 128)
        assert support.read_png(server.get("/api/image.png")[2])[3] == [row[10:210] for row in striped[20:120]]
        f = "g,0.11111,30,0.01,0.01,0,0,1"
        commands = exported_commands(server, f, workdir)
        assert len(commands) == 2 and all("--region 10,20,200,100" in c for c in commands)
        for command in commands:
            args = shlex.split(command)
            run = support.run_tool(*args[1:], cwd=str(workdir))
            assert run.returncode == 0, run.stderr
            output = workdir / args[args.index("-o") + 1]
            assert support.read_png_file(str(output))[3] == shown(server, f)[3], command
            output.unlink()
    finally:
        server.stop()


def test_opening_another_image_from_the_page(workdir, striped):
    from conftest import write_pgm
    server = support.Studio("striped.pgm", cwd=str(workdir))
    try:
        before = server.get("/api/info")[2]
        refusals = [
            ("/api/image?name=notes.txt", b"not an image at all", "notes.txt"),
            ("/api/image?name=empty.png", b"", "empty.png"),
            ("/api/image?name=huge.pgm", b"P5\n4000 10\n255\n" + bytes(40000), "--region"),
            ("/api/image?name=../up.pgm", b"P5\n1 1\n255\n\0", "name must be a file name without a folder"),
            ("/api/image?name=%22q%22.pgm", b"P5\n1 1\n255\n\0", "without a folder, quotes"),
            ("/api/image?name=a%0A.pgm", b"P5\n1 1\n255\n\0", "or control characters"),
            ("/api/image?name=a.pgm&x=1", b"P5\n1 1\n255\n\0", "unknown parameter 'x'"),
        ]
        for path, body, reason in refusals:
            status, text = raw_request(server, "POST", path, body=body)
            assert status == 400 and reason in text, (path, text)
        status, text = raw_request(server, "POST", "/api/image?name=form.pgm", body=b"P5\n1 1\n255\n\0",
                                   headers={"Content-Type": "application/x-www-form-urlencoded"})
        assert status == 415 and "not as a form" in text
        assert server.get("/api/info")[2] == before   # the image before stays

        rows = [[(x * 5 + y * 9) % 256 for x in range(64)] for y in range(48)]
        write_pgm(str(workdir / "other.pgm"), rows)
        status, text = raw_request(server, "POST", "/api/image?name=other.pgm",
                                   body=(workdir / "other.pgm").read_bytes())
        assert status == 200
        info = json.loads(text)
        assert (info["name"], info["width"], info["height"]) == ("other.pgm", 64, 48)
        assert json.loads(server.get("/api/info")[2]) == info
        assert support.read_png(server.get("/api/image.png?v=2")[2])[3] == rows
        commands = exported_commands(server, "b,0.2,0.01,0,1", workdir)
        assert commands[0].startswith("kxfreq filter other.pgm -o other-filtered.png --load other-filter.kxf")
        for command in commands:
            args = shlex.split(command)
            run = support.run_tool(*args[1:], cwd=str(workdir))
            assert run.returncode == 0, run.stderr
            assert support.read_png_file(str(workdir / "other-filtered.png"))[3] == shown(server, "b,0.2,0.01,0,1")[3]
    finally:
        assert server.stop()[0] == 0


def test_an_image_larger_than_one_transform_is_filtered_in_tiles(workdir):
    """2600 x 2300: spectrum and peaks from the Welch spectrum, the full-size
    result in tiles, and the exported command and Python code giving it."""
    numpy = pytest.importorskip("numpy")
    clean = numpy.array(support.read_png_file(os.path.join(support.DATA, "photo.png"))[3], dtype=numpy.float64)
    clean = numpy.pad(clean, ((0, 2300 - clean.shape[0]), (0, 2600 - clean.shape[1])), mode="symmetric")
    y, x = numpy.mgrid[0:2300, 0:2600]
    fx, fy = numpy.cos(numpy.radians(30)) / 9, numpy.sin(numpy.radians(30)) / 9
    big = numpy.clip(numpy.rint(clean + 15 * numpy.sin(2 * numpy.pi * (fx * x + fy * y))), 0, 255).astype(numpy.uint8)
    with open(str(workdir / "big.pgm"), "wb") as f:
        f.write(b"P5\n2600 2300\n255\n" + big.tobytes())
    server = support.Studio("big.pgm", cwd=str(workdir))
    try:
        info = json.loads(server.get("/api/info")[2])
        assert info["tiled"] and (info["width"], info["height"]) == (2600, 2300)
        assert (info["spectrumWidth"], info["spectrumHeight"], info["previewFactor"]) == (1024, 1024, 6)
        strongest = info["components"][0]
        assert abs(strongest["period"] - 9) < 0.1 and abs(strongest["angle"] - 30) < 1
        assert support.read_png(server.get("/api/spectrum.png")[2])[:2] == (1024, 1024)
        assert shown(server, "", 1)[:2] == (433, 383)   # the preview, reduced 6 times

        def page_result(filters):
            status, _, tif = server.get("/api/export/result.tif?filters=" + urllib.parse.quote(filters))
            assert status == 200, tif[:200]
            return support.read_tiff(tif, numpy)

        # One notch: the filter command applies it in tiles, as the page does.
        one = peak_filter(server, 0.01)
        page = page_result(one)
        assert page.shape == (2300, 2600)
        assert shown(server, one)[:2] == (1300, 1150)   # shown reduced
        residual = numpy.sqrt(numpy.mean((page - clean) ** 2))
        assert residual < 0.5 * numpy.sqrt(numpy.mean((big - clean) ** 2))
        text = server.get("/api/export/command?filters=" + urllib.parse.quote(one))[2].decode()
        commands = [line for line in text.splitlines() if line.startswith("kxfreq filter ")]
        assert len(commands) == 1 and "--load" not in commands[0]
        args = shlex.split(commands[0])
        args[args.index("-o") + 1] = "big-tool.tif"
        run = support.run_tool(*args[1:], cwd=str(workdir))
        assert run.returncode == 0, run.stderr
        assert numpy.array_equal(support.read_tiff((workdir / "big-tool.tif").read_bytes(), numpy), page)

        # A filter of one padded size cannot be tiled.
        status, _, body = server.get("/api/export/filter.kxf?filters=" + urllib.parse.quote(one))
        assert status == 400 and b"larger than one transform" in body

        # Several filters: the command export says to use Python, whose result is the page's.
        several = one + ";b,0.3,0.01,0,1"
        text = server.get("/api/export/command?filters=" + urllib.parse.quote(several))[2].decode()
        assert "Python code only" in text and "\nkxfreq filter" not in text
        probe = subprocess.run([sys.executable, "-c", "import kxfreq"], capture_output=True, text=True)
        if probe.returncode != 0:
            pytest.skip("the kxfreq Python module is not importable here: " + probe.stderr.strip()[-200:])
        numpy.save(str(workdir / "big.npy"), big)
        for filters in (one, several, ""):
            code = server.get("/api/export/python?filters=" + urllib.parse.quote(filters))[2]
            (workdir / "big_export.py").write_bytes(code)
            run = subprocess.run([sys.executable, "big_export.py", "big.npy", "big-out.npy"], cwd=str(workdir),
                                 capture_output=True, text=True, timeout=120)
            assert run.returncode == 0, run.stderr
            result = numpy.load(str(workdir / "big-out.npy"))
            assert result.dtype == numpy.uint8 and numpy.array_equal(result, page_result(filters)), filters
    finally:
        status, _, err = server.stop()
        assert status == 0 and err == "", err   # a clean stop: no sanitizer or other report
