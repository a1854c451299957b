#include "cdg_decoder.h"
#include "cdg_writer.h"
#include "image_file.h"
#include "timed_lyrics.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace format = tamo::core::cdg;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

constexpr std::string_view usage = R"(Usage:
  tamo-cdg render FILE.cdg --at SECONDS[,SECONDS...] --out DIR [--format png|ppm]
      Writes the 300 by 216 picture at each time as DIR/<name>-<seconds>.png
      (or .ppm) and prints the paths written.
  tamo-cdg info FILE.cdg
      Prints the packet count, the duration and how often each instruction
      occurs.
  tamo-cdg write LYRICS.txt --out FILE.cdg [--title TEXT] [--artist TEXT]
                [--duration SECONDS] [--rows N]
      Turns timed lyrics into a .cdg file. Each line of LYRICS.txt is
      SECONDS<TAB>text (12.5 or 1:02.25); a time with no text ends the line
      before it; blank lines and lines starting with # are skipped.
      --duration pads the stream to the song's length; --rows sets the
      lines on screen (1 to 5, default 4).
  tamo-cdg --help

Exit status: 0 on success, 1 when a file cannot be read or written,
2 for a usage error.
)";

struct UsageError {
    std::string message;
};

// Command arguments: positional ones in order, options by name.
struct Arguments {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;
    bool help = false;
};

Arguments parseArguments(int argc, char** argv, int from, const std::vector<std::string>& known) {
    Arguments args;
    for (int i = from; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            args.help = true;
            continue;
        }
        if (arg.rfind("--", 0) != 0 || arg.size() == 2) {
            args.positional.push_back(arg);
            continue;
        }
        std::string name = arg.substr(2);
        std::optional<std::string> value;
        if (const std::size_t equals = name.find('='); equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        if (std::find(known.begin(), known.end(), name) == known.end())
            throw UsageError{"unknown option --" + name};
        if (!value) {
            if (i + 1 >= argc) throw UsageError{"--" + name + " needs a value"};
            value = argv[++i];
        }
        if (args.options.count(name)) throw UsageError{"--" + name + " given twice"};
        args.options[name] = *value;
    }
    return args;
}

std::string requireOption(const Arguments& args, const std::string& name) {
    const auto it = args.options.find(name);
    if (it == args.options.end() || it->second.empty()) throw UsageError{"missing --" + name};
    return it->second;
}

const std::string& onePositional(const Arguments& args, std::string_view what) {
    if (args.positional.empty()) throw UsageError{"missing " + std::string(what)};
    if (args.positional.size() > 1) throw UsageError{"unexpected argument \"" + args.positional[1] + "\""};
    return args.positional.front();
}

std::optional<double> parseSeconds(std::string_view text) {
    if (text.empty() || text.front() == '+') return std::nullopt;
    double value = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value) || value < 0.0)
        return std::nullopt;
    return value;
}

// The decoder only says no; say why, as far as the file system can tell.
std::string whyNotLoadable(const fs::path& path) {
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status)) return "no such file";
    if (!fs::is_regular_file(status)) return "not a regular file";
    const std::uintmax_t size = fs::file_size(path, ec);
    if (ec) return "cannot read its size";
    if (size == 0) return "the file is empty";
    if (size > format::largestFile) return "larger than " + std::to_string(format::largestFile) + " bytes";
    if (size < format::packetSize) return "shorter than one 24-byte packet";
    return "cannot read it";
}

tamo::core::CdgDecoder loadReporting(const std::string& file, bool& ok) {
    tamo::core::CdgDecoder decoder;
    ok = decoder.load(file);
    if (!ok) std::cerr << "tamo-cdg: cannot load " << file << ": " << whyNotLoadable(file) << "\n";
    return decoder;
}

std::string formatSeconds(double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

int runRender(const Arguments& args) {
    const std::string file = onePositional(args, "FILE.cdg");
    const std::string out = requireOption(args, "out");
    std::string kind = "png";
    if (const auto it = args.options.find("format"); it != args.options.end()) kind = it->second;
    if (kind != "png" && kind != "ppm") throw UsageError{"--format must be png or ppm, not \"" + kind + "\""};

    std::vector<double> times;
    const std::string at = requireOption(args, "at");
    std::string_view list = at;
    while (true) {
        const std::size_t comma = list.find(',');
        const std::string_view item = list.substr(0, comma);
        const auto seconds = parseSeconds(item);
        if (!seconds) throw UsageError{"--at: \"" + std::string(item) + "\" is not a time in seconds of 0 or more"};
        times.push_back(*seconds);
        if (comma == std::string_view::npos) break;
        list.remove_prefix(comma + 1);
    }

    bool ok = false;
    tamo::core::CdgDecoder decoder = loadReporting(file, ok);
    if (!ok) return exitFailure;
    std::error_code ec;
    fs::create_directories(out, ec);
    if (!fs::is_directory(out)) {
        std::cerr << "tamo-cdg: cannot create folder " << out << "\n";
        return exitFailure;
    }

    // Rendering in time order avoids a replay from the start for each
    // backward step; the files are the same either way.
    std::vector<double> sorted = times;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    const std::string stem = fs::path(file).stem().string();
    for (const double seconds : sorted) {
        decoder.renderAt(seconds);
        const fs::path target = fs::path(out) / (stem + "-" + formatSeconds(seconds) + "." + kind);
        std::string error;
        const bool written =
            kind == "png" ? tamo::cdg::writePng(target, decoder.frame(), format::pictureWidth, format::pictureHeight, error)
                          : tamo::cdg::writePpm(target, decoder.frame(), format::pictureWidth, format::pictureHeight, error);
        if (!written) {
            std::cerr << "tamo-cdg: " << error << "\n";
            return exitFailure;
        }
        std::cout << target.string() << "\n";
    }
    return 0;
}

std::string_view instructionName(int instruction) {
    using enum format::Instruction;
    switch (static_cast<format::Instruction>(instruction)) {
    case memoryPreset: return "memory preset";
    case borderPreset: return "border preset";
    case tileBlock: return "tile block";
    case scrollPreset: return "scroll preset";
    case scrollCopy: return "scroll copy";
    case transparentColour: return "transparent colour (ignored)";
    case loadPaletteLow: return "load palette, low";
    case loadPaletteHigh: return "load palette, high";
    case tileBlockXor: return "tile block XOR";
    }
    return "(ignored)";
}

int runInfo(const Arguments& args) {
    const std::string file = onePositional(args, "FILE.cdg");
    bool ok = false;
    const tamo::core::CdgDecoder decoder = loadReporting(file, ok);
    if (!ok) return exitFailure;

    std::array<std::uint64_t, 64> histogram{};
    std::uint64_t other = 0;
    const auto packets = decoder.packets();
    for (std::size_t at = 0; at < packets.size(); at += format::packetSize) {
        if ((packets[at] & format::symbolMask) == format::graphicsCommand) ++histogram[packets[at + 1] & format::symbolMask];
        else ++other;
    }
    std::error_code ec;
    const std::uintmax_t size = fs::file_size(file, ec);

    std::cout << "file: " << file << "\n"
              << "packets: " << decoder.packetCount() << "\n"
              << "duration: " << formatSeconds(decoder.duration()) << " s\n"
              << "dropped tail bytes: " << (ec ? 0 : size - decoder.packets().size()) << "\n"
              << "other commands (ignored): " << other << "\n"
              << "instructions:\n";
    for (int i = 0; i < 64; ++i) {
        if (histogram[static_cast<std::size_t>(i)] == 0) continue;
        std::string label = std::to_string(i) + " " + std::string(instructionName(i));
        label.resize(std::max<std::size_t>(label.size(), 34), ' ');
        std::cout << "  " << label << " " << histogram[static_cast<std::size_t>(i)] << "\n";
    }
    return 0;
}

int runWrite(const Arguments& args) {
    const std::string input = onePositional(args, "LYRICS.txt");
    const std::string out = requireOption(args, "out");
    tamo::cdg::CdgWriterOptions options;
    if (const auto it = args.options.find("title"); it != args.options.end()) options.title = it->second;
    if (const auto it = args.options.find("artist"); it != args.options.end()) options.artist = it->second;
    if (const auto it = args.options.find("duration"); it != args.options.end()) {
        const auto seconds = parseSeconds(it->second);
        if (!seconds || *seconds > 24 * 3600) throw UsageError{"--duration: \"" + it->second + "\" is not a length in seconds"};
        options.duration = *seconds;
    }
    if (const auto it = args.options.find("rows"); it != args.options.end()) {
        const std::string& text = it->second;
        if (text.size() != 1 || text[0] < '1' || text[0] > '5') throw UsageError{"--rows must be 1 to 5"};
        options.rowsOnScreen = text[0] - '0';
    }

    std::error_code ec;
    if (!fs::is_regular_file(input, ec)) {
        std::cerr << "tamo-cdg: cannot read " << input << ": not a regular file\n";
        return exitFailure;
    }
    if (fs::file_size(input, ec) > 16 * 1024 * 1024) {
        std::cerr << "tamo-cdg: " << input << " is too large for a lyric file\n";
        return exitFailure;
    }
    std::ifstream in(input, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in && !in.eof()) {
        std::cerr << "tamo-cdg: cannot read " << input << "\n";
        return exitFailure;
    }

    std::vector<tamo::cdg::LyricLine> lines;
    std::string error;
    if (!tamo::cdg::parseTimedLyrics(text.str(), lines, error)) {
        std::cerr << "tamo-cdg: " << input << ": " << error << "\n";
        return exitFailure;
    }
    const tamo::cdg::CdgStream stream = tamo::cdg::writeCdg(lines, options);

    std::ofstream file(out, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(stream.bytes.data()), static_cast<std::streamsize>(stream.bytes.size()));
    file.close();
    if (!file) {
        std::cerr << "tamo-cdg: cannot write " << out << "\n";
        return exitFailure;
    }
    std::cout << "wrote " << out << ": " << lines.size() << " lines, " << stream.packetCount() << " packets, "
              << formatSeconds(static_cast<double>(stream.packetCount()) / format::packetsPerSecond) << " s\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << usage;
        return exitUsage;
    }
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::cout << usage;
        return 0;
    }
    try {
        Arguments args;
        if (command == "render") args = parseArguments(argc, argv, 2, {"at", "out", "format"});
        else if (command == "info") args = parseArguments(argc, argv, 2, {});
        else if (command == "write") args = parseArguments(argc, argv, 2, {"out", "title", "artist", "duration", "rows"});
        else throw UsageError{"unknown command \"" + command + "\""};
        if (args.help) {
            std::cout << usage;
            return 0;
        }
        if (command == "render") return runRender(args);
        if (command == "info") return runInfo(args);
        return runWrite(args);
    } catch (const UsageError& e) {
        std::cerr << "tamo-cdg: " << e.message << "\n(see tamo-cdg --help)\n";
        return exitUsage;
    } catch (const std::exception& e) {
        std::cerr << "tamo-cdg: " << e.what() << "\n";
        return exitFailure;
    }
}
