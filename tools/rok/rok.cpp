// rok: the library's image-processing functions over image files.
//
// Every subcommand is one line of the command table below: its name, the
// options it takes, an example, and the library family it calls. The export
// for an image is looked up in a table generated from the manifest by family,
// the image's sample type, its channel layout and the form (Add, 8u, C3,
// RSfs; see find_export in core.cpp), so a family that takes one of the call
// shapes here needs only a command line and its option parsing. The commands
// themselves live by kind in pixel.cpp, filters.cpp, geometry.cpp,
// transforms.cpp and numbers.cpp; this file holds the table, the help, the
// option parser, batches and the demo.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "rok.h"

namespace rok {

// ---- the table ----

namespace {
const char* const kArithOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)";
const char* const kMulOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)\n"
    "--full-range   8u and 16u: a b / 255 (or / 65535), so that full scale times x is x";
const char* const kDivOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)\n"
    "--round R      two integer images: the quotient rounded toward zero, half to even or half away from zero";
const char* const kValueOption = "--value V      an image and a constant: one number, or one per channel";
}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"add", "add two images, or an image and --value (integer results scaled by 2^-scale, saturated)",
         "A B OUT | IN OUT --value V [--scale N]", kArithOptions, "rok add a.png b.png out.png --scale 1", "Add", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"sub", "subtract the second image (or --value) from the first", "A B OUT | IN OUT --value V [--scale N]",
         kArithOptions, "rok sub a.png b.png diff.png", "Sub", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, true); }},
        {"mul", "multiply two images, or an image by --value", "A B OUT | IN OUT --value V [--scale N | --full-range]",
         kMulOptions,
         "rok mul a.png mask.png out.png --full-range", "Mul", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"div", "divide the first image by the second (a zero divisor warns) or by --value",
         "A B OUT [--round zero|even|away] | IN OUT --value V [--scale N]", kDivOptions, "rok div a.png b.png ratio.png --scale -4", "Div", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, true); }},
        {"and", "bitwise AND of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok and in.png out.png --value 0xF0", "And", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"or", "bitwise OR of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok or a.png b.png out.png", "Or", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"xor", "bitwise XOR of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok xor a.png b.png out.png", "Xor", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"compare", "grey mask, 255 where A op B (or A op --value) holds for every channel of the pixel",
         "A B OUT [--op lt|le|eq|ge|gt | --eps E] | IN OUT --value V [--op OP]",
         "--op OP        lt, le, eq, ge or gt (default gt)\n--eps E        32f: 255 where |A - B| <= E\n"
         "--value V      compare with a constant instead of B: one number, or one per channel",
         "rok compare a.png b.png mask.png --op ge", "Compare", 2, run_compare},
        {"convert", "change the sample type (values kept; 32f rounds to nearest even and saturates)",
         "IN OUT --to 8u|16u|32f [--full-range | --range LO,HI]",
         "--to T         8u, 16u or 32f\n"
         "--full-range   map the whole range instead: 8u 0..255 <-> 16u 0..65535, 8u <-> 32f 0..1\n"
         "--range LO,HI  8u <-> 32f: the 32f values that map to 0 and 255", "rok convert in.png out.pfm --to 32f", "Convert", 1, run_convert},
        {"border", "add a border around the image", "IN OUT --replicate N | --const N [--value V] | --wrap N",
         "--replicate N  repeat the edge pixels N times\n--wrap N       32f grey: the image repeated around itself\n"
         "--const N      fill N pixels with --value\n--value V      the fill value, every channel (default 0)",
         "rok border in.png out.png --replicate 8", "CopyReplicateBorder", 1, run_border},
        {"filter", "linear filters; edges are replicated", "IN OUT --kernel K | --kernel-file F | --box [--kernel WxH] | --sobel | --gauss 3|5 | ... (see options)",
         "--kernel K     your kernel, rows separated by ';' (\"1 2 1; 2 4 2; 1 2 1\"), applied as a convolution\n"
         "--kernel-file F the kernel from a text file, one row a line\n"
         "--divisor N    integer images, whole-number kernels: results divided by N (default: the kernel's sum, or 1)\n"
         "--anchor X,Y   the kernel element over the output pixel (default: the centre)\n"         "--row K        a separable filter: this row kernel, then --column K (either alone is fine);\n"
         "               integer images: each pass divided by its kernel's sum and rounded\n"
         "--column K     the column kernel of a separable filter\n"
         "--box          mean over --kernel WxH (default 3x3)\n--sobel        horizontal-edge Sobel 3x3\n"
         "--sobel-vert   vertical-edge Sobel 3x3\n--prewitt h|v  Prewitt 3x3, horizontal or vertical edges\n"
         "--roberts down|up  Roberts cross, either diagonal\n"         "--scharr h|v   Scharr 3x3, signed: 8-bit grey gives 32f (write .pfm)\n"
         "--sobel-second h|v  second derivative 3x3, signed as --scharr\n--sobel-cross  mixed second derivative 3x3, signed as --scharr\n"
         "--gauss N      Gaussian 3x3 or 5x5\n--lowpass N    mean 3x3 or 5x5\n--hipass N     high-pass 3x3 or 5x5\n"
         "--sharpen      3x3 sharpening\n--laplace N    Laplacian 3x3 or 5x5",
         "rok filter in.png out.png --kernel \"1 2 1; 2 4 2; 1 2 1\"", "FilterBox", 1, run_filter},
        {"median", "median filter; edges are replicated", "IN OUT [--mask WxH | --cross N | --horiz N | --vert N | --color N | --weighted W]",
         "--mask WxH     the window (default 3x3)\n--cross N      the cross of a 3x3 or 5x5 square\n"
         "--horiz N      a row of 3 or 5\n--vert N       a column of 3 or 5\n"
         "--color N      RGB: the pixel of the 3x3 or 5x5 square nearest the others\n"
         "--weighted W   8-bit grey: 3x3, the centre pixel counted W times (an odd number)",
         "rok median in.png out.png --mask 5x5", "FilterMedian", 1, run_median},
        {"dilate", "maximum over a 3x3 square or a shaped mask; edges are replicated", "IN OUT [--mask WxH] [--shape S]",
         "--mask WxH     the mask's size (default: the 3x3 square)\n--shape S      rect (default), cross or disc",
         "rok dilate in.png out.png --mask 7x7 --shape disc", "Dilate", 1, run_morph},
        {"erode", "minimum over a 3x3 square or a shaped mask; edges are replicated", "IN OUT [--mask WxH] [--shape S]",
         "--mask WxH     the mask's size (default: the 3x3 square)\n--shape S      rect (default), cross or disc",
         "rok erode in.png out.png --mask 5x5 --shape cross", "Erode", 1, run_morph},
        {"min", "minimum over a rectangle (edges replicated), or of two images pixel by pixel", "IN OUT [--mask WxH] | A B OUT",
         "--mask WxH     the window (default 3x3)", "rok min in.png out.png --mask 5x5", "FilterMin", 1, run_minmax, true},
        {"max", "maximum over a rectangle (edges replicated), or of two images pixel by pixel", "IN OUT [--mask WxH] | A B OUT",
         "--mask WxH     the window (default 3x3)", "rok max a.png b.png out.png", "FilterMax", 1, run_minmax, true},
        {"resize", "resize by a factor or to a size", "IN OUT [--scale F | --size WxH] [--method M]",
         "--scale F      factor for both axes (default 0.5)\n--size WxH     the output size\n"
         "--method M     nearest, linear (default), cubic, lanczos or super",
         "rok resize in.png out.png --scale 0.5 --method lanczos", "ResizeSqrPixel", 1, run_resize},
        {"rotate", "rotate about the centre (or a point), keeping the size or growing to hold it all",
         "IN OUT --angle DEG [--about X,Y | --expand] [--method M] [--background V]",
         "--angle DEG    degrees, counter-clockwise on screen\n--about X,Y    about this source position instead of the centre\n"
         "--expand       an output large enough for the whole rotated image\n"
         "--method M     nearest, linear (default), cubic\n"
         "--background V value of the pixels no source pixel reaches (default 0)",
         "rok rotate in.png out.png --angle 30", "Rotate", 1, run_rotate},
        {"shear", "shear: x' = x + X y, y' = Y x + y, about the centre", "IN OUT [--x X] [--y Y] [--expand] [--method M] [--background V]",
         "--x X          horizontal shear (default 0)\n--y Y          vertical shear (default 0)\n"
         "--expand       an output large enough for the whole sheared image\n--method M     nearest, linear (default), cubic\n"
         "--background V value of the pixels no source pixel reaches (default 0)",
         "rok shear in.png out.png --x 0.3 --expand", "Shear", 1, run_shear},
        {"warp", "affine or perspective warp of pixel positions", "IN OUT --matrix a,b,c,d,e,f[,g,h,i] | --quad Q [--model M] [--method M]",
         "--matrix M     six coefficients: x' = a x + b y + c, y' = d x + e y + f;\n"
         "               nine: x' = (a x + b y + c) / (g x + h y + i), y' = (d x + e y + f) / (g x + h y + i)\n"
         "--quad Q       x0,y0,...,x3,y3: where the image's corners go (top left, top right, bottom right, bottom left)\n"
         "--model M      the map of --quad: perspective (default), affine (the first three corners) or bilinear\n"         "--inverse      the matrix maps output positions to source positions\n"
         "--method M     nearest, linear (default), cubic",
         "rok warp in.png out.png --matrix 1,0.2,0,0,1,0", "WarpAffine", 1, run_warp},
        {"remap", "take each output pixel from the source position that two maps give", "IN OUT --xmap X.pfm --ymap Y.pfm [--method M]",
         "--xmap F       32f grey image (PFM): source x of each output pixel; its size is the output's\n"
         "--ymap F       the same for y\n--method M     nearest, linear (default), cubic",
         "rok remap in.png out.png --xmap mx.pfm --ymap my.pfm", "Remap", 1, run_remap},
        {"mirror", "flip the image", "IN OUT [--flip h|v|both]", "--flip A       h: left-right (default), v: top-bottom, both",
         "rok mirror in.png out.png --flip v", "Mirror", 1, run_mirror},
        {"threshold", "values beyond a level clamped to it or set to a value, or a binary mask",
         "IN OUT [--level V | --otsu] [--op lt|gt] [--value V | --binary] | --below L:V --above H:W",
         "--level V      the level (default 128); one number, or one per channel\n"
         "--otsu         8-bit grey: the level that best splits the histogram in two (Otsu)\n"
         "--op lt|gt     lt: values below the level, gt (default): values above it\n"
         "--value V      set those values to V instead of the level\n"
         "--binary       a grey mask instead: 255 where the value is beyond the level in every channel, else 0\n"
         "--below L:V    values under L become V\n--above H:W    values over H become W (with --below: both sides in one pass)",
         "rok threshold in.png out.png --otsu --binary", "Threshold", 1, run_threshold},
        {"shift", "shift the bits of integer samples", "IN OUT --left N | --right N", "--left N       shift left by N bits (0 to 31)\n"
         "--right N      shift right by N bits", "rok shift in.png out.png --right 4", "RShiftC", 1, run_shift},
        {"premultiply", "multiply the colour of RGBA images by their alpha, or any image by a constant alpha", "IN OUT [--by ALPHA]",
         "--by ALPHA     a constant alpha for every pixel (0 to 255, or 65535 for 16u): v * ALPHA / max",
         "rok premultiply in.png out.png", "AlphaPremul", 1, run_premultiply},
        {"channels", "reorder the colour channels, take one as a grey image, or set an alpha channel",
         "IN OUT --order I,J,K | --take K | --set-alpha V",
         "--order I,J,K  output channel n is input channel (I, J, K)[n]: 2,1,0 swaps red and blue (alpha kept)\n"
         "--take K       channel K (0 first) as a grey image\n"
         "--set-alpha V  RGB to RGBA (or RGBA with a new alpha): alpha V everywhere",
         "rok channels in.png out.png --order 2,1,0", "SwapChannels", 1, run_channels},
        {"transpose", "swap rows and columns", "IN OUT", "", "rok transpose in.png out.png", "Transpose", 1, run_transpose},
        {"lut", "map sample values through a curve", "IN OUT --gamma G | --invert | --points X:Y,... [--interp I] [--alpha]",
         "--gamma G      out = max (in / max)^(1/G), max 255, 65535, or 1 for 32f (values above 1 kept)\n"
         "--invert       out = max - in\n"
         "--points P     curve through X:Y points; values outside the first..last X are kept\n"
         "--interp I     linear (default), cubic or step (each point's Y up to the next X)\n"
         "--alpha        map the alpha channel of RGBA images too (default: kept)",
         "rok lut in.png out.png --gamma 2.2", "LUT", 1, run_lut},
        {"palette", "false colour: an 8-bit grey image to RGB through a colour map", "IN OUT [--map M] [--bits N]",
         "--map M        heat (default), rainbow, ice or grey\n--bits N       the top N bits of each value pick the colour (1 to 8, default 8)",
         "rok palette depth.png coloured.png --map rainbow", "LUTPalette", 1, run_palette},
        {"math", "square root, logarithm, exponential, square, absolute value or bitwise NOT of each sample",
         "IN OUT --op sqrt|ln|exp|sqr|abs|not [--scale N]",
         "--op OP        sqrt, ln, exp, sqr, abs (32f) or not (8u)\n--scale N      scale factor of integer results (default 0)",
         "rok math in.png out.png --op sqrt --scale -4", "Sqrt", 1, run_math},
        {"dct", "2-D discrete cosine transform (coefficients as 32f; --view for a picture)", "IN OUT [--inverse | --view | --blocks K]",
         "--inverse      coefficients (32f, .pfm) back to samples (32f)\n"
         "--view         write the log magnitude of the coefficients scaled to 8 bits\n"
         "--blocks K     8-bit grey: the 8x8 block transform, keeping the lowest KxK frequencies of each block (1 to 8)",
         "rok dct in.png coefficients.pfm && rok dct coefficients.pfm back.pfm --inverse", "DCTFwd", 1, run_dct},
        {"wavelet", "one level of the Haar wavelet transform: the four half-size bands as a mosaic", "IN OUT [--view | --inverse]",
         "--view         each band scaled to 8 bits (the details by their magnitude) instead of 32f coefficients\n"
         "--inverse      a 32f mosaic (.pfm) back to the image",
         "rok wavelet in.png bands.pfm && rok wavelet bands.pfm back.pfm --inverse", "WTFwd", 1, run_wavelet},
        {"fft", "log magnitude (or phase) of the 2-D Fourier transform, centred", "IN OUT [--phase]",
         "--phase        the phase instead, -pi..pi as 0..255",
         "rok fft in.png spectrum.png", "DFTFwd_RToPack", 1, run_fft},
        {"stats", "sum, mean, extrema and where they are, norms and histogram (text or --json)", "IN... [--json] [--bins N] [--range LO,HI] [--levels L,...]",
         "--range LO,HI  also count the pixels with LO <= value <= HI, per channel (8u and 32f; RGBA: colour channels)\n"         "--levels L,... also count the pixels between each pair of levels (L0 <= value < L1, ...), per channel\n"
         "--bins N       histogram bins over the full range (default 16, 0 for none; 8u and 16u, not RGB)\n--json         one JSON object a file",
         "rok stats in.png --json", "Sum", 0, nullptr},
        {"diff", "norms of the difference of two images, absolute and relative to B, and their dot product (text or --json)", "A B [--json]",
         "--json         one JSON object (relative norms are null, in text inf, when B is all zero)", "rok diff a.png b.png --json", "NormDiff_L2", 0, nullptr},
        {"moments", "spatial and central moments, centroid and the seven Hu invariants (text or --json)", "IN... [--json]",
         "--json         one JSON object a file", "rok moments shape.png --json", "Moments64f", 0, nullptr},
        {"demo", "run a pipeline on a built-in image; outputs and a contact sheet in a folder", "[DIR]", "",
         "rok demo rok-demo", "", 0, nullptr},
    };
    return table;
}

const Command* find_command(const std::string& name) {
    for (const auto& c : commands())
        if (name == c.name) return &c;
    return nullptr;
}

namespace {
const char* kCommonHelp =
    "common options:\n"
    "  --threads N    library threads (default: every processor)\n"
    "  --time         run the operation repeatedly and print the median time\n"
    "  --repeat N     runs for --time (default 9)\n"
    "  --json         machine-readable output\n"
    "  --out DIR      batch: every argument (or folder) is an input, outputs go to DIR\n"    "  --ext EXT      batch: write the outputs in this format (png, jpg, pgm, ppm, pfm)\n"
    "  --quiet        batch: no progress bar\n"
    "  --help         this help\n";

void print_usage() {
    std::printf("rok: image processing with rokIP\n\nusage: rok COMMAND ARGS [OPTIONS]\n\ncommands:\n");
    for (const auto& c : commands()) std::printf("  %-12s %s\n", c.name, c.summary);
    std::printf("\n%s\nexample: rok demo   (then: rok COMMAND --help)\nformats: PNG, JPEG, PGM, PPM (8/16-bit) and PFM (32f)\n"
                "exit codes: 0 done, 1 some files of a batch failed, 2 bad arguments, unreadable input or a refused image\n",
                kCommonHelp);
}
}  // namespace

namespace {
void print_help(const Command& c) {
    std::printf("rok %s: %s\n\nusage: rok %s %s\n", c.name, c.summary, c.name, c.usage);
    if (*c.options) {
        std::printf("\noptions:\n");
        std::string opts = c.options;
        std::size_t p = 0;
        while (p < opts.size()) {
            std::size_t e = opts.find('\n', p);
            if (e == std::string::npos) e = opts.size();
            std::printf("  %s\n", opts.substr(p, e - p).c_str());
            p = e + 1;
        }
    }
    // what the library takes, from the generated table
    bool listed = false;
    for (const Entry& e : all_exports()) listed = listed || std::strcmp(e.family, c.family) == 0;
    if (listed) std::printf("\nimages: roki%s takes %s; files give 8u, 16u or 32f\n", c.family, takes(c.family).c_str());
    std::printf("\n%s\nexample:\n  %s\n", kCommonHelp, c.example);
}
}  // namespace

namespace {
// Options without a value; every other --name takes the next argument.
bool is_flag(const std::string& k) {
    static const char* flags[] = {"time", "json", "help", "box", "sobel", "sharpen", "quiet", "invert", "alpha", "inverse", "view",
                                  "full-range", "otsu", "binary", "sobel-vert", "phase", "expand", "sobel-cross"};
    for (const char* f : flags)
        if (k == f) return true;
    return false;
}
}  // namespace

namespace {
Options parse(int argc, char** argv, int first) {
    Options o;
    for (int i = first; i < argc; ++i) {
        std::string a = argv[i];
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            std::string k = a.substr(2), v = "1";
            auto eq = k.find('=');
            if (eq != std::string::npos) v = k.substr(eq + 1), k = k.substr(0, eq);
            else if (!is_flag(k)) {
                if (i + 1 >= argc) throw Error("--" + k + " needs a value");
                v = argv[++i];
            }
            o.kv[k] = v;
        } else if (a == "-h") {
            o.kv["help"] = "1";
        } else {
            o.args.push_back(a);
        }
    }
    return o;
}
}  // namespace

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Runs the operation once, or --repeat times for --time, giving the median in ms.
Image timed(const Command& c, const Options& o, const Image& a, const Image* b, double* ms) {
    int reps = o.has("time") ? o.integer("repeat", 9, 1, 10000) : 1;
    std::vector<double> t;
    Image out;
    for (int r = 0; r < reps; ++r) {
        double t0 = now();
        out = c.run(c, o, a, b);
        t.push_back(1e3 * (now() - t0));
    }
    std::sort(t.begin(), t.end());
    *ms = t[t.size() / 2];
    return out;
}

namespace {
std::string base_name(const std::string& p) {
    auto s = p.find_last_of('/');
    return s == std::string::npos ? p : p.substr(s + 1);
}
}  // namespace

namespace {
bool is_dir(const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
}  // namespace

std::vector<std::string> expand_inputs(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    for (const auto& a : args) {
        if (!is_dir(a)) {
            files.push_back(a);
            continue;
        }
        std::vector<std::string> found;
        if (DIR* d = opendir(a.c_str())) {
            while (dirent* e = readdir(d)) {
                std::string n = e->d_name;
                if (n[0] != '.' && !format_of(n).empty() && n.find(".rok-") == std::string::npos) found.push_back(a + "/" + n);
            }
            closedir(d);
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

namespace {
void report(const Options& o, const std::string& in, const std::string& out, const Image& img, double ms) {
    if (o.has("json"))
        std::printf("{\"input\": \"%s\", \"output\": \"%s\", \"width\": %d, \"height\": %d, \"channels\": %d, \"type\": \"%s\"%s}\n",
                    json_escape(in).c_str(), json_escape(out).c_str(), img.width, img.height, img.channels, depth_name(img.depth),
                    o.has("time") ? (", \"ms\": " + Options::fmt_num(ms)).c_str() : "");
    else if (o.has("time"))
        std::printf("%s: %.3f ms (median of %d)\n", out.c_str(), ms, o.integer("repeat", 9, 1, 10000));
}
}  // namespace

namespace {
// Several inputs into --out DIR, a few files at a time. The library keeps one
// pool of workers for the process, and a call that finds it busy runs on its
// own thread, so files in flight plus the pool never exceed the processors.
int run_batch(const Command& c, const Options& o) {
    std::string dir = o.get("out");
    if (!is_dir(dir) && mkdir(dir.c_str(), 0777) != 0) throw Error(dir + ": cannot make the folder");
    std::vector<std::string> files = expand_inputs(o.args);
    if (files.empty()) throw Error(std::string(c.name) + ": no input files");
    std::string ext = o.get("ext");
    unsigned procs = std::max(1u, std::thread::hardware_concurrency());
    unsigned workers = std::min<unsigned>(static_cast<unsigned>(files.size()), std::max(1u, procs / 2));
    bool bar = isatty(2) && !o.has("quiet");
    std::atomic<std::size_t> next{0}, done{0}, failed{0};
    std::mutex io;
    double t0 = now();
    auto work = [&] {
        for (std::size_t i; (i = next++) < files.size();) {
            const std::string& in = files[i];
            std::string name = base_name(in);
            if (!ext.empty()) name = name.substr(0, name.find_last_of('.')) + "." + ext;
            std::string out = dir + "/" + name;
            try {
                Image a = read_image(in);
                double ms = 0;
                Image r = timed(c, o, a, nullptr, &ms);
                write_image(r, out);
                std::lock_guard<std::mutex> l(io);
                if (bar) std::fprintf(stderr, "\r\033[K");
                report(o, in, out, r, ms);
            } catch (const std::exception& e) {
                ++failed;
                std::lock_guard<std::mutex> l(io);
                if (bar) std::fprintf(stderr, "\r\033[K");
                std::fprintf(stderr, "rok %s: %s (skipped)\n", c.name, e.what());
            }
            std::size_t n = ++done;
            if (bar) {
                std::lock_guard<std::mutex> l(io);
                int filled = static_cast<int>(30 * n / files.size());
                std::fprintf(stderr, "\r[%.*s%*s] %zu/%zu", filled, "##############################", 30 - filled, "", n,
                             files.size());
                std::fflush(stderr);
            }
        }
    };
    std::vector<std::thread> pool;
    for (unsigned k = 1; k < workers; ++k) pool.emplace_back(work);
    work();
    for (auto& t : pool) t.join();
    if (bar) std::fprintf(stderr, "\r\033[K");
    std::fprintf(stderr, "rok %s: %zu file(s), %zu written, %zu failed, %.2f s\n", c.name, files.size(),
                 files.size() - failed.load(), failed.load(), now() - t0);
    return failed ? 1 : 0;
}
}  // namespace

// ---- demo ----

namespace {
Image demo_image(int w, int h) {
    Image img;
    img.allocate(w, h, 3, Depth::u8);
    for (int y = 0; y < h; ++y) {
        std::uint8_t* r = img.row(y);
        for (int x = 0; x < w; ++x) {
            double dx = x - w * 0.5, dy = y - h * 0.5, rr = std::sqrt(dx * dx + dy * dy);
            int ring = static_cast<int>(127.5 + 127.5 * std::cos(rr * rr / (w * 3.0)));
            int checker = ((x / 32) + (y / 32)) % 2 ? 200 : 40;
            bool disc = rr < h * 0.22;
            r[3 * x + 0] = static_cast<std::uint8_t>(disc ? 230 : x * 255 / w);
            r[3 * x + 1] = static_cast<std::uint8_t>(disc ? ring : checker);
            r[3 * x + 2] = static_cast<std::uint8_t>(disc ? 60 : ring);
            if (((x * 7 + y * 13) % 97) == 0) r[3 * x + 1] = 255;  // sparse specks for the median filter
        }
    }
    return img;
}
}  // namespace

namespace {
int run_demo(const Options& o) {
    std::string dir = o.args.empty() ? "rok-demo" : o.args[0];
    if (!is_dir(dir) && mkdir(dir.c_str(), 0777) != 0) throw Error(dir + ": cannot make the folder");
    int threads = 0;
    rokGetNumThreads(&threads);
    const RokLibraryVersion* v = rokiGetLibVersion();
    std::printf("%s %s, %d thread(s); writing into %s/\n", v->Name, v->Version, threads, dir.c_str());
    Image src = demo_image(1024, 768);
    Image grey;
    {   // the green channel as a grey image, for the grey-only steps
        grey.allocate(src.width, src.height, 1, Depth::u8);
        for (std::size_t i = 0; i < grey.data.size(); ++i) grey.data[i] = src.data[3 * i + 1];
    }
    struct Step {
        const char* label;
        const char* cmd;
        std::vector<std::pair<std::string, std::string>> opts;
        bool use_grey;
    };
    std::vector<Step> steps = {
        {"median 5x5", "median", {{"mask", "5x5"}}, false},
        {"box 9x9", "filter", {{"box", "1"}, {"kernel", "9x9"}}, false},
        {"gauss 5x5", "filter", {{"gauss", "5"}}, false},
        {"sobel", "filter", {{"sobel", "1"}}, true},
        {"sharpen", "filter", {{"sharpen", "1"}}, false},
        {"dilate", "dilate", {}, false},
        {"erode", "erode", {}, false},
        {"rotate 30", "rotate", {{"angle", "30"}, {"method", "cubic"}}, false},
        {"mirror", "mirror", {{"flip", "h"}}, false},
        {"threshold", "threshold", {{"level", "100"}, {"op", "gt"}}, true},
        {"resize x0.5 lanczos", "resize", {{"scale", "0.5"}, {"method", "lanczos"}}, false},
        {"fft", "fft", {}, true},
        {"dct", "dct", {{"view", "1"}}, true},
        {"lut gamma 2.2", "lut", {{"gamma", "2.2"}}, false},
        {"warp quad", "warp", {{"quad", "80,40,980,0,1023,767,0,720"}}, false},
    };
    std::vector<std::pair<std::string, Image>> outs = {{"input", src}};
    write_image(src, dir + "/input.png");
    for (const auto& s : steps) {
        const Command* c = find_command(s.cmd);
        Options so;
        for (const auto& kv : s.opts) so.kv[kv.first] = kv.second;
        so.kv["time"] = "1";
        so.kv["repeat"] = "5";
        double ms = 0;
        Image r = timed(*c, so, s.use_grey ? grey : src, nullptr, &ms);
        std::string file = std::string(s.label);
        for (char& ch : file) if (ch == ' ' || ch == '.') ch = '_';
        write_image(r, dir + "/" + file + ".png");
        std::printf("  %-22s %8.3f ms   %s/%s.png\n", s.label, ms, dir.c_str(), file.c_str());
        outs.emplace_back(s.label, r);
    }
    {
        Options so;
        double ms = 0, t0 = now();
        Stats st = compute_stats(src, 16);
        ms = 1e3 * (now() - t0);
        std::printf("  %-22s %8.3f ms   mean %.2f %.2f %.2f\n", "stats", ms, st.mean[0], st.mean[1], st.mean[2]);
    }
    // The contact sheet: every output as a 256x192 RGB tile (resized by the library).
    const int tw = 256, th = 192, cols = 4;
    int rows = static_cast<int>((outs.size() + cols - 1) / cols);
    Image sheet;
    sheet.allocate(cols * tw + (cols + 1) * 8, rows * th + (rows + 1) * 8, 3, Depth::u8);
    std::fill(sheet.data.begin(), sheet.data.end(), 32);
    const Command* rs = find_command("resize");
    for (std::size_t i = 0; i < outs.size(); ++i) {
        Image t = outs[i].second;
        if (t.channels == 1) {
            Image c3;
            c3.allocate(t.width, t.height, 3, Depth::u8);
            for (std::size_t p = 0; p < t.data.size(); ++p) c3.data[3 * p] = c3.data[3 * p + 1] = c3.data[3 * p + 2] = t.data[p];
            t = c3;
        }
        Options so;
        so.kv["size"] = std::to_string(tw) + "x" + std::to_string(th);
        so.kv["method"] = "super";
        Image tile = rs->run(*rs, so, t, nullptr);
        int ox = 8 + static_cast<int>(i % cols) * (tw + 8), oy = 8 + static_cast<int>(i / cols) * (th + 8);
        for (int y = 0; y < th; ++y) std::memcpy(sheet.row(oy + y) + 3 * ox, tile.row(y), 3 * tw);
    }
    write_image(sheet, dir + "/contact_sheet.png");
    std::printf("contact sheet: %s/contact_sheet.png (in reading order: ", dir.c_str());
    for (std::size_t i = 0; i < outs.size(); ++i) std::printf("%s%s", i ? ", " : "", outs[i].first.c_str());
    std::printf(")\n");
    return 0;
}
}  // namespace

namespace {
int main_checked(int argc, char** argv) {
    if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h" || std::string(argv[1]) == "help") {
        print_usage();
        return argc < 2 ? 2 : 0;
    }
    std::string name = argv[1];
    const Command* c = find_command(name);
    if (!c) throw Error("unknown command '" + name + "' (rok --help lists them)");
    Options o = parse(argc, argv, 2);
    if (o.has("help")) {
        print_help(*c);
        return 0;
    }
    // An option the command does not know is a mistake (a typo would
    // otherwise be ignored and the default used): the options are those its
    // help names, and the common ones.
    std::string known = std::string(c->usage) + " " + c->options + " " + kCommonHelp;
    for (const auto& kv : o.kv) {
        std::string opt = "--" + kv.first;
        std::size_t at = known.find(opt);
        bool found = false;
        for (; at != std::string::npos && !found; at = known.find(opt, at + 1)) {
            char next = at + opt.size() < known.size() ? known[at + opt.size()] : ' ';
            found = !(std::isalnum(static_cast<unsigned char>(next)) || next == '-');
        }
        if (!found) throw Error("unknown option " + opt + " (rok " + name + " --help lists its options)");
    }
    if (o.has("threads")) check(rokSetNumThreads(o.integer("threads", 0, 1, 1024)), "rokSetNumThreads");
    if (name == "demo") return run_demo(o);
    if (name == "stats") return run_stats(o);
    if (name == "moments") return run_moments(o);
    if (name == "diff") return run_diff(o);
    // two-image commands take a constant instead of the second image
    int inputs = c->inputs == 2 && o.has("value") ? 1 : c->inputs;
    if (c->pairs && o.args.size() == 3 && !o.has("out")) inputs = 2;
    if (o.has("out")) {
        if (inputs != 1) throw Error(std::string("--out takes commands of one input, not ") + c->name);
        return run_batch(*c, o);
    }
    std::size_t want = static_cast<std::size_t>(inputs) + 1;
    if (o.args.size() != want)
        throw Error(std::string(c->name) + " takes " + std::to_string(want) + " file names (" + c->usage + "); rok " + c->name + " --help");
    const std::string& out = o.args.back();
    if (format_of(out).empty()) throw Error(out + ": unknown output format (use .png, .jpg, .pgm, .ppm or .pfm)");
    Image a = read_image(o.args[0]);
    Image b;
    if (inputs == 2) b = read_image(o.args[1]);
    double ms = 0;
    Image r = timed(*c, o, a, inputs == 2 ? &b : nullptr, &ms);
    write_image(r, out);
    report(o, o.args[0], out, r, ms);
    return 0;
}
}  // namespace

}  // namespace rok

int main(int argc, char** argv) {
    std::string cmd = argc > 1 ? argv[1] : "";
    try {
        return rok::main_checked(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "rok%s%s: not enough memory for the images\n", cmd.empty() || cmd[0] == '-' ? "" : " ", cmd[0] == '-' ? "" : cmd.c_str());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "rok%s%s: %s\n", cmd.empty() || cmd[0] == '-' ? "" : " ", cmd[0] == '-' ? "" : cmd.c_str(), e.what());
        return 2;
    }
}
