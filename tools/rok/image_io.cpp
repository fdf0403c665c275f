#include "image_io.h"

#include <png.h>
#include <stdio.h>
#include <jpeglib.h>
#include <setjmp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace rok {
namespace {

struct File {
    FILE* f = nullptr;
    explicit File(FILE* ff) : f(ff) {}
    ~File() { if (f) std::fclose(f); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
};

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// ---- PNG ----

struct PngFailure {
    jmp_buf jump;
    char message[200];
};

void png_fail(png_structp png, png_const_charp msg) {
    auto* f = static_cast<PngFailure*>(png_get_error_ptr(png));
    std::snprintf(f->message, sizeof f->message, "%s", msg);
    longjmp(f->jump, 1);
}
void png_quiet(png_structp, png_const_charp) {}

// Everything between setjmp and the end of the read lives in plain C storage
// owned by the caller, so a longjmp out of libpng skips no destructor.
bool png_read_rows(FILE* fp, PngFailure* fail, Image* img) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, fail, png_fail, png_quiet);
    if (!png) { std::snprintf(fail->message, sizeof fail->message, "out of memory"); return false; }
    png_infop info = png_create_info_struct(png);
    png_bytep* volatile rows = nullptr;
    if (!info || setjmp(fail->jump)) {
        std::free(rows);
        if (!info) std::snprintf(fail->message, sizeof fail->message, "out of memory");
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        return false;
    }
    png_init_io(png, fp);
    png_read_info(png, info);
    int bits = png_get_bit_depth(png, info);
    int type = png_get_color_type(png, info);
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (type == PNG_COLOR_TYPE_GRAY && bits < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    if (bits == 16) png_set_swap(png);
    png_read_update_info(png, info);
    int channels = png_get_channels(png, info);
    int depth = png_get_bit_depth(png, info);
    png_uint_32 w = png_get_image_width(png, info), h = png_get_image_height(png, info);
    if (w > 65535 || h > 65535) png_error(png, "image larger than 65535 pixels a side");
    // Grey with alpha is read as RGBA: the library has no two-channel layout.
    int out_channels = channels == 2 ? 4 : channels;
    img->allocate(static_cast<int>(w), static_cast<int>(h), out_channels, depth == 16 ? Depth::u16 : Depth::u8);
    std::size_t rowbytes = png_get_rowbytes(png, info);
    std::size_t need = static_cast<std::size_t>(img->step());
    unsigned char* scratch = nullptr;
    rows = static_cast<png_bytep*>(std::malloc(sizeof(png_bytep) * h));
    if (!rows) png_error(png, "out of memory");
    if (channels == 2) {
        scratch = static_cast<unsigned char*>(std::malloc(rowbytes * h));
        if (!scratch) png_error(png, "out of memory");
        for (png_uint_32 y = 0; y < h; ++y) rows[y] = scratch + rowbytes * y;
    } else {
        if (rowbytes != need) png_error(png, "unexpected row size");
        for (png_uint_32 y = 0; y < h; ++y) rows[y] = img->row(static_cast<int>(y));
    }
    png_read_image(png, rows);
    png_read_end(png, nullptr);
    if (channels == 2) {
        int b = depth == 16 ? 2 : 1;
        for (png_uint_32 y = 0; y < h; ++y) {
            const unsigned char* s = rows[y];
            unsigned char* d = img->row(static_cast<int>(y));
            for (png_uint_32 x = 0; x < w; ++x, s += 2 * b, d += 4 * b) {
                std::memcpy(d, s, b); std::memcpy(d + b, s, b); std::memcpy(d + 2 * b, s, b);
                std::memcpy(d + 3 * b, s + b, b);
            }
        }
        std::free(scratch);
    }
    std::free(rows);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

bool png_write_rows(FILE* fp, PngFailure* fail, const Image* img) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, fail, png_fail, png_quiet);
    if (!png) { std::snprintf(fail->message, sizeof fail->message, "out of memory"); return false; }
    png_infop info = png_create_info_struct(png);
    png_bytep* volatile rows = nullptr;
    if (!info || setjmp(fail->jump)) {
        std::free(rows);
        if (!info) std::snprintf(fail->message, sizeof fail->message, "out of memory");
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_init_io(png, fp);
    int type = img->channels == 1 ? PNG_COLOR_TYPE_GRAY : img->channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA;
    png_set_IHDR(png, info, img->width, img->height, img->depth == Depth::u16 ? 16 : 8, type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 3);
    png_write_info(png, info);
    if (img->depth == Depth::u16) png_set_swap(png);
    rows = static_cast<png_bytep*>(std::malloc(sizeof(png_bytep) * img->height));
    if (!rows) png_error(png, "out of memory");
    for (int y = 0; y < img->height; ++y) rows[y] = const_cast<png_bytep>(img->row(y));
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    std::free(rows);
    png_destroy_write_struct(&png, &info);
    return true;
}

// ---- JPEG ----

struct JpegFailure {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpeg_fail(j_common_ptr cinfo) {
    auto* f = reinterpret_cast<JpegFailure*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, f->message);
    longjmp(f->jump, 1);
}
void jpeg_quiet(j_common_ptr, int) {}

bool jpeg_read_rows(FILE* fp, JpegFailure* fail, Image* img) {
    jpeg_decompress_struct cinfo;
    cinfo.err = jpeg_std_error(&fail->mgr);
    fail->mgr.error_exit = jpeg_fail;
    fail->mgr.emit_message = jpeg_quiet;
    if (setjmp(fail->jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, fp);
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = cinfo.jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&cinfo);
    if (cinfo.output_width > 65535 || cinfo.output_height > 65535) {
        std::snprintf(fail->message, sizeof fail->message, "image larger than 65535 pixels a side");
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    img->allocate(static_cast<int>(cinfo.output_width), static_cast<int>(cinfo.output_height),
                  cinfo.output_components, Depth::u8);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = img->row(static_cast<int>(cinfo.output_scanline));
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

bool jpeg_write_rows(FILE* fp, JpegFailure* fail, const Image* img, int quality) {
    jpeg_compress_struct cinfo;
    cinfo.err = jpeg_std_error(&fail->mgr);
    fail->mgr.error_exit = jpeg_fail;
    fail->mgr.emit_message = jpeg_quiet;
    if (setjmp(fail->jump)) {
        jpeg_destroy_compress(&cinfo);
        return false;
    }
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, fp);
    cinfo.image_width = static_cast<JDIMENSION>(img->width);
    cinfo.image_height = static_cast<JDIMENSION>(img->height);
    cinfo.input_components = img->channels;
    cinfo.in_color_space = img->channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(img->row(static_cast<int>(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return true;
}

// ---- netpbm ----

// Reads one header token, skipping white space and comments.
std::string pnm_token(FILE* f) {
    std::string t;
    int c = std::fgetc(f);
    for (;;) {
        while (c != EOF && std::isspace(c)) c = std::fgetc(f);
        if (c == '#') {
            while (c != EOF && c != '\n') c = std::fgetc(f);
            continue;
        }
        break;
    }
    while (c != EOF && !std::isspace(c) && t.size() < 32) {
        t.push_back(static_cast<char>(c));
        c = std::fgetc(f);
    }
    return t;  // the single white-space character after the token is consumed
}

long pnm_number(FILE* f, const std::string& path, long lo, long hi) {
    std::string t = pnm_token(f);
    char* end = nullptr;
    long v = t.empty() ? 0 : std::strtol(t.c_str(), &end, 10);
    if (t.empty() || *end || v < lo || v > hi) throw Error(path + ": bad netpbm header");
    return v;
}

Image read_pnm(FILE* f, const std::string& path) {
    std::string magic = pnm_token(f);
    Image img;
    if (magic == "P5" || magic == "P6") {
        int w = static_cast<int>(pnm_number(f, path, 1, 65535));
        int h = static_cast<int>(pnm_number(f, path, 1, 65535));
        long maxval = pnm_number(f, path, 1, 65535);
        img.allocate(w, h, magic == "P5" ? 1 : 3, maxval > 255 ? Depth::u16 : Depth::u8);
        if (std::fread(img.data.data(), 1, img.data.size(), f) != img.data.size())
            throw Error(path + ": truncated file");
        if (img.depth == Depth::u16)  // big-endian on disk
            for (std::size_t i = 0; i < img.data.size(); i += 2) std::swap(img.data[i], img.data[i + 1]);
        return img;
    }
    if (magic == "PF" || magic == "Pf") {
        int w = static_cast<int>(pnm_number(f, path, 1, 65535));
        int h = static_cast<int>(pnm_number(f, path, 1, 65535));
        std::string s = pnm_token(f);
        char* end = nullptr;
        double scale = s.empty() ? 0 : std::strtod(s.c_str(), &end);
        if (s.empty() || *end || scale == 0) throw Error(path + ": bad PFM header");
        img.allocate(w, h, magic == "PF" ? 3 : 1, Depth::f32);
        // Rows are stored bottom to top.
        for (int y = h - 1; y >= 0; --y)
            if (std::fread(img.row(y), 1, static_cast<std::size_t>(img.step()), f) != static_cast<std::size_t>(img.step()))
                throw Error(path + ": truncated file");
        if (scale > 0)
            for (std::size_t i = 0; i < img.data.size(); i += 4) {
                std::swap(img.data[i], img.data[i + 3]);
                std::swap(img.data[i + 1], img.data[i + 2]);
            }
        return img;
    }
    throw Error(path + ": not a PGM, PPM or PFM file");
}

void write_pnm(FILE* f, const Image& img, const std::string& fmt, const std::string& path) {
    if (fmt == "pfm") {
        if (img.depth != Depth::f32 || img.channels == 4)
            throw Error(path + ": PFM holds 32f grey or RGB images (use rok convert --to 32f)");
        std::fprintf(f, "%s\n%d %d\n-1.0\n", img.channels == 3 ? "PF" : "Pf", img.width, img.height);
        for (int y = img.height - 1; y >= 0; --y) std::fwrite(img.row(y), 1, static_cast<std::size_t>(img.step()), f);
        return;
    }
    int want = fmt == "pgm" ? 1 : 3;
    if (img.depth == Depth::f32) throw Error(path + ": " + fmt + " holds 8-bit and 16-bit samples (use .pfm or --to 8u)");
    if (img.channels != want)
        throw Error(path + ": " + (want == 1 ? "PGM holds grey images" : "PPM holds RGB images") + ", this one has " +
                    std::to_string(img.channels) + " channels");
    std::fprintf(f, "P%d\n%d %d\n%d\n", want == 1 ? 5 : 6, img.width, img.height, img.depth == Depth::u16 ? 65535 : 255);
    if (img.depth == Depth::u8) {
        std::fwrite(img.data.data(), 1, img.data.size(), f);
    } else {
        std::vector<std::uint8_t> be(img.data);
        for (std::size_t i = 0; i < be.size(); i += 2) std::swap(be[i], be[i + 1]);
        std::fwrite(be.data(), 1, be.size(), f);
    }
}

}  // namespace

std::string format_of(const std::string& path) {
    auto dot = path.find_last_of('.');
    auto slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = lower(path.substr(dot + 1));
    if (ext == "jpeg") ext = "jpg";
    if (ext == "png" || ext == "jpg" || ext == "pgm" || ext == "ppm" || ext == "pfm") return ext;
    return "";
}

Image read_image(const std::string& path) {
    File f(std::fopen(path.c_str(), "rb"));
    if (!f.f) throw Error(path + ": " + std::strerror(errno));
    unsigned char sig[8] = {};
    std::size_t n = std::fread(sig, 1, sizeof sig, f.f);
    std::rewind(f.f);
    Image img;
    if (n == 8 && png_sig_cmp(sig, 0, 8) == 0) {
        PngFailure fail{};
        if (!png_read_rows(f.f, &fail, &img))
            throw Error(path + ": bad PNG file (" + (std::strcmp(fail.message, "Read Error") ? fail.message : "truncated") + ")");
        return img;
    }
    if (n >= 3 && sig[0] == 0xFF && sig[1] == 0xD8 && sig[2] == 0xFF) {
        auto fail = std::make_unique<JpegFailure>();
        if (!jpeg_read_rows(f.f, fail.get(), &img)) throw Error(path + ": bad JPEG file (" + fail->message + ")");
        return img;
    }
    if (n >= 2 && sig[0] == 'P') return read_pnm(f.f, path);
    if (n == 0) throw Error(path + ": empty file");
    throw Error(path + ": not a PNG, JPEG, PGM, PPM or PFM file");
}

void write_image(const Image& img, const std::string& path, int jpeg_quality) {
    std::string fmt = format_of(path);
    if (fmt.empty()) throw Error(path + ": unknown output format (use .png, .jpg, .pgm, .ppm or .pfm)");
    if ((fmt == "png" || fmt == "jpg") && img.depth == Depth::f32)
        throw Error(path + ": " + (fmt == "png" ? "PNG" : "JPEG") + " holds no 32f samples (use .pfm or --to 8u)");
    if (fmt == "jpg" && img.depth != Depth::u8) throw Error(path + ": JPEG holds 8-bit samples (use --to 8u first)");
    if (fmt == "jpg" && img.channels == 4) {  // JPEG has no alpha: it is dropped
        Image rgb;
        rgb.allocate(img.width, img.height, 3, Depth::u8);
        for (std::size_t i = 0, n = static_cast<std::size_t>(img.width) * img.height; i < n; ++i)
            std::memcpy(&rgb.data[3 * i], &img.data[4 * i], 3);
        write_image(rgb, path, jpeg_quality);
        return;
    }
    std::string tmp = path + ".rok-XXXXXX";
    std::vector<char> name(tmp.begin(), tmp.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd < 0) throw Error(path + ": cannot write (" + std::strerror(errno) + ")");
    FILE* fp = fdopen(fd, "wb");
    if (!fp) { close(fd); unlink(name.data()); throw Error(path + ": " + std::strerror(errno)); }
    bool ok = true;
    std::string why;
    try {
        if (fmt == "png") {
            PngFailure fail{};
            if (!png_write_rows(fp, &fail, &img)) { ok = false; why = std::string("PNG: ") + fail.message; }
        } else if (fmt == "jpg") {
            auto fail = std::make_unique<JpegFailure>();
            if (!jpeg_write_rows(fp, fail.get(), &img, jpeg_quality)) { ok = false; why = std::string("JPEG: ") + fail->message; }
        } else {
            write_pnm(fp, img, fmt, path);
        }
    } catch (const Error&) {
        std::fclose(fp);
        unlink(name.data());
        throw;
    }
    if (std::ferror(fp)) { ok = false; why = std::strerror(errno); }
    if (std::fclose(fp) != 0 && ok) { ok = false; why = std::strerror(errno); }
    // mkstemp makes the file private; give it the usual permissions.
    static const mode_t mask = [] { mode_t m = umask(0); umask(m); return m; }();
    if (ok) chmod(name.data(), 0666 & ~mask);
    if (!ok || std::rename(name.data(), path.c_str()) != 0) {
        if (ok) why = std::strerror(errno);
        unlink(name.data());
        throw Error(path + ": cannot write (" + why + ")");
    }
}

}  // namespace rok
