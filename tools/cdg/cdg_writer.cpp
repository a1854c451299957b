#include "cdg_writer.h"

#include "bitmap_font.h"
#include "cdg_format.h"
#include "cdg_packets.h"
#include "packet_scheduler.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tamo::cdg {
namespace {

namespace format = core::cdg;
using Priority = PacketScheduler::Priority;

constexpr int safeFirstColumn = format::safeLeft / format::tileWidth;  // 1
constexpr int safeColumns = format::safeWidth / format::tileWidth;     // 48
constexpr int safeFirstRow = format::safeTop / format::tileHeight;     // 1
constexpr int safeRows = format::safeHeight / format::tileHeight;      // 16
// A text row is two tiles high with one tile of space below it.
constexpr int rowPitch = 3;
constexpr std::size_t oneSecond = format::packetsPerSecond;

struct Cell {
    char character = ' ';
    int offset = 0;  // in characters from the start of the row
    double singAt = 0.0;
};

struct Row {
    std::vector<Cell> cells;
    int width = 0;
    double start = 0.0;
    double end = 0.0;
};

std::size_t slotAt(double seconds) {
    if (!(seconds > 0.0)) return 0;
    return static_cast<std::size_t>(std::llround(seconds * format::packetsPerSecond));
}

// Greedy word wrap; each character lights at its share of its word's time.
std::vector<Row> wrapLine(const LyricLine& line) {
    std::vector<Row> rows;
    Row row;
    const auto place = [&](const std::string& text, double start, double end) {
        const int length = static_cast<int>(text.size());
        if (row.width > 0 && row.width + 1 + length > charactersPerRow) {
            rows.push_back(std::move(row));
            row = Row{};
        }
        const int offset = row.width == 0 ? 0 : row.width + 1;
        if (row.cells.empty()) row.start = start;
        for (int i = 0; i < length; ++i) {
            if (text[static_cast<std::size_t>(i)] == ' ') continue;
            row.cells.push_back({text[static_cast<std::size_t>(i)], offset + i, start + (end - start) * i / length});
        }
        row.width = offset + length;
        row.end = std::max(row.end, end);
    };
    for (const LyricWord& word : line.words) {
        const std::string text = displayText(word.text);
        if (text.empty()) continue;
        const double end = std::max(word.end, word.start);
        // A word wider than a row is cut into row-sized pieces.
        const std::size_t pieces = (text.size() + charactersPerRow - 1) / charactersPerRow;
        for (std::size_t p = 0; p < pieces; ++p) {
            const std::size_t from = p * charactersPerRow;
            const std::size_t to = std::min(text.size(), from + charactersPerRow);
            const double share = (end - word.start) / static_cast<double>(text.size());
            place(text.substr(from, to - from), word.start + share * static_cast<double>(from),
                  word.start + share * static_cast<double>(to));
        }
    }
    if (!row.cells.empty()) rows.push_back(std::move(row));
    return rows;
}

int leftColumnOf(const Row& row) { return safeFirstColumn + (safeColumns - 2 * row.width) / 2; }

class StreamBuilder {
public:
    std::size_t clearScreen(std::size_t wanted) {
        for (auto& row : inked_) row.fill(false);
        return add(wanted, Priority::timed, {memoryPresetPacket(backgroundColour)}, {}, true);
    }

    // Draws a row of text at a tile row, first erasing whatever is left of
    // an earlier row there. Returns the ids of the glyphs placed.
    std::vector<std::size_t> drawRow(const Row& row, int tileRow, std::uint8_t colour, std::uint8_t colourWhenSung,
                                     std::size_t wanted, const std::vector<std::size_t>& after) {
        const int left = leftColumnOf(row);
        std::array<bool, format::tileColumns> covered{};
        for (const Cell& cell : row.cells) {
            covered[static_cast<std::size_t>(left + 2 * cell.offset)] = true;
            covered[static_cast<std::size_t>(left + 2 * cell.offset + 1)] = true;
        }
        std::vector<Packet> erase;
        const std::array<std::uint8_t, 12> blank{};
        for (int r = tileRow; r < tileRow + 2; ++r) {
            for (int c = safeFirstColumn; c < safeFirstColumn + safeColumns; ++c) {
                auto& inked = inked_[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)];
                if (!inked || covered[static_cast<std::size_t>(c)]) continue;
                erase.push_back(tilePacket(backgroundColour, backgroundColour, r, c, blank, false));
                inked = false;
            }
        }
        if (!erase.empty()) add(wanted, Priority::fill, std::move(erase), after, false);

        std::vector<std::size_t> placed;
        for (const Cell& cell : row.cells) {
            PlacedGlyph glyph;
            glyph.character = cell.character;
            glyph.tileColumn = left + 2 * cell.offset;
            glyph.tileRow = tileRow;
            glyph.colour = colour;
            glyph.colourWhenSung = colourWhenSung;
            glyph.singAt = cell.singAt;
            // All four tiles are drawn, blank ones too, so the cell holds
            // exactly this character whatever was there before.
            std::vector<Packet> packets;
            for (int ty = 0; ty < 2; ++ty) {
                for (int tx = 0; tx < 2; ++tx) {
                    const auto bits = cellTile(cell.character, tx, ty);
                    packets.push_back(tilePacket(backgroundColour, colour, tileRow + ty, glyph.tileColumn + tx, bits, false));
                    inked_[static_cast<std::size_t>(tileRow + ty)][static_cast<std::size_t>(glyph.tileColumn + tx)] =
                        std::any_of(bits.begin(), bits.end(), [](std::uint8_t b) { return b != 0; });
                }
            }
            const std::size_t id = glyphs_.size();
            glyphs_.push_back(glyph);
            drawJob_.push_back(add(wanted, Priority::fill, std::move(packets), after, false, id));
            highlightJob_.push_back(PacketScheduler::none);
            placed.push_back(id);
        }
        return placed;
    }

    // XOR turns the lyric colour into the sung colour on the glyph's lit
    // pixels and leaves the background alone.
    std::size_t highlight(std::size_t glyphId) {
        const PlacedGlyph& glyph = glyphs_[glyphId];
        const auto mask = static_cast<std::uint8_t>(glyph.colour ^ glyph.colourWhenSung);
        std::vector<Packet> packets;
        for (int ty = 0; ty < 2; ++ty) {
            for (int tx = 0; tx < 2; ++tx) {
                const auto bits = cellTile(glyph.character, tx, ty);
                if (std::all_of(bits.begin(), bits.end(), [](std::uint8_t b) { return b == 0; })) continue;
                packets.push_back(tilePacket(0, mask, glyph.tileRow + ty, glyph.tileColumn + tx, bits, true));
            }
        }
        const std::size_t job =
            add(slotAt(glyph.singAt), Priority::timed, std::move(packets), {drawJob_[glyphId]}, false, glyphId);
        highlightJob_[glyphId] = job;
        return job;
    }

    std::size_t add(std::size_t wanted, Priority priority, std::vector<Packet> packets,
                    std::vector<std::size_t> after, bool afterAllEarlier, std::size_t glyph = PacketScheduler::none) {
        latestWanted_ = std::max(latestWanted_, wanted);
        glyphOfJob_.push_back(glyph);
        return scheduler_.add(wanted, priority, std::move(packets), std::move(after), afterAllEarlier);
    }

    CdgStream finish(std::size_t minimumLength) {
        const PacketScheduler::Layout layout = scheduler_.run(std::max(minimumLength, latestWanted_ + oneSecond));
        CdgStream result;
        result.glyphs = std::move(glyphs_);
        for (std::size_t g = 0; g < result.glyphs.size(); ++g) {
            result.glyphs[g].shownPacket = layout.lastSlot[drawJob_[g]];
            if (highlightJob_[g] != PacketScheduler::none)
                result.glyphs[g].sungPacket = layout.lastSlot[highlightJob_[g]];
        }
        markHidden(layout, result.glyphs);

        // Leave the last picture up for a moment past the final packet.
        std::size_t length = layout.stream.size();
        for (std::size_t slot = layout.stream.size(); slot-- > 0;) {
            if (layout.jobAt[slot] >= 0) {
                length = std::max(length, slot + 1 + oneSecond);
                break;
            }
        }
        result.bytes.reserve(length * format::packetSize);
        for (const Packet& packet : layout.stream) result.bytes.insert(result.bytes.end(), packet.begin(), packet.end());
        result.bytes.resize(length * format::packetSize, 0);
        return result;
    }

private:
    // Follows the stream in slot order: a glyph is hidden by the first clear,
    // or by the first other job to replace one of its tiles.
    void markHidden(const PacketScheduler::Layout& layout, std::vector<PlacedGlyph>& glyphs) const {
        std::array<std::array<std::size_t, format::tileColumns>, format::tileRows> owner;
        for (auto& row : owner) row.fill(PacketScheduler::none);
        const auto hide = [&](std::size_t glyph, std::size_t slot) {
            if (glyph != PacketScheduler::none && glyphs[glyph].hiddenPacket == noPacket) glyphs[glyph].hiddenPacket = slot;
        };
        for (std::size_t slot = 0; slot < layout.stream.size(); ++slot) {
            if (layout.jobAt[slot] < 0) continue;
            const std::size_t glyph = glyphOfJob_[static_cast<std::size_t>(layout.jobAt[slot])];
            const Packet& packet = layout.stream[slot];
            const auto instruction = static_cast<format::Instruction>(packet[1] & format::symbolMask);
            if (instruction == format::Instruction::memoryPreset) {
                for (auto& row : owner) {
                    for (std::size_t& o : row) {
                        hide(o, slot);
                        o = PacketScheduler::none;
                    }
                }
            } else if (instruction == format::Instruction::tileBlock) {
                std::size_t& o = owner[packet[format::dataOffset + 2] & 31][packet[format::dataOffset + 3] & 63];
                if (o != glyph) hide(o, slot);
                o = glyph;
            }
        }
    }

    PacketScheduler scheduler_;
    std::vector<PlacedGlyph> glyphs_;
    std::vector<std::size_t> glyphOfJob_;
    std::vector<std::size_t> drawJob_;
    std::vector<std::size_t> highlightJob_;
    std::array<std::array<bool, format::tileColumns>, format::tileRows> inked_{};
    std::size_t latestWanted_ = 0;
};

std::array<Colour4, 16> paletteColours() {
    std::array<Colour4, 16> colours;
    colours.fill({15, 15, 15});
    colours[backgroundColour] = {0, 1, 6};  // dark blue
    colours[lyricColour] = {15, 15, 15};    // white
    colours[sungColour] = {15, 11, 0};      // amber
    colours[titleColour] = {7, 14, 15};   // light cyan
    colours[artistColour] = {12, 12, 12}; // light grey
    return colours;
}

std::vector<Row> titleRows(const CdgWriterOptions& options, std::vector<std::uint8_t>& colours) {
    std::vector<Row> rows;
    const auto addText = [&](const std::string& text, std::uint8_t colour) {
        for (Row& row : wrapLine(timeLyricLine(text, 0.0, 0.0))) {
            rows.push_back(std::move(row));
            colours.push_back(colour);
        }
    };
    addText(options.title, titleColour);
    addText(options.artist, artistColour);
    return rows;
}

}  // namespace

CdgStream writeCdg(const std::vector<LyricLine>& input, const CdgWriterOptions& options) {
    const int rowsOnScreen = std::clamp(options.rowsOnScreen, 1, 5);
    const double lead = std::max(0.0, options.leadSeconds);
    const double pause = std::max(0.0, options.breakSeconds);

    std::vector<const LyricLine*> ordered;
    for (const LyricLine& line : input)
        if (!line.words.empty()) ordered.push_back(&line);
    std::stable_sort(ordered.begin(), ordered.end(), [](const LyricLine* a, const LyricLine* b) {
        return a->words.front().start < b->words.front().start;
    });
    std::vector<Row> rows;
    for (const LyricLine* line : ordered)
        for (Row& row : wrapLine(*line)) rows.push_back(std::move(row));

    StreamBuilder builder;
    const auto colours = paletteColours();
    builder.add(0, Priority::timed, {palettePacket(false, std::span<const Colour4, 8>(colours.data(), 8))}, {}, false);
    builder.add(0, Priority::timed, {palettePacket(true, std::span<const Colour4, 8>(colours.data() + 8, 8))}, {}, false);
    const std::size_t firstClear = builder.clearScreen(0);

    const auto topRowFor = [](int count) { return safeFirstRow + (safeRows - (rowPitch * count - 1)) / 2; };

    std::vector<std::uint8_t> titleColours;
    const std::vector<Row> title = titleRows(options, titleColours);
    // Five rows fill the safe area; a longer title is cut.
    const int titleCount = std::min<int>(static_cast<int>(title.size()), 5);
    for (int i = 0; i < titleCount; ++i) {
        const auto colour = titleColours[static_cast<std::size_t>(i)];
        builder.drawRow(title[static_cast<std::size_t>(i)], topRowFor(titleCount) + rowPitch * i, colour, colour, 0,
                        {firstClear});
    }

    const int top = topRowFor(rowsOnScreen);
    bool screenUsed = titleCount > 0;
    double previousEnd = 0.0;
    std::size_t clearJob = firstClear;
    std::vector<std::vector<std::size_t>> highlightsOfRow;
    for (std::size_t first = 0; first < rows.size();) {
        std::size_t last = first + 1;
        while (last < rows.size() && rows[last].start - rows[last - 1].end <= pause) ++last;

        const double start = rows[first].start;
        std::size_t drawFrom = slotAt(start - lead);
        if (screenUsed) {
            // After a break, clear a second after the singing stops rather
            // than leave sung lines up through a long instrumental.
            std::size_t clearAt = slotAt(start - lead);
            if (first > 0) clearAt = std::max(slotAt(previousEnd + 0.5), std::min(clearAt, slotAt(previousEnd + 1.0)));
            clearJob = builder.clearScreen(clearAt);
            drawFrom = std::max(drawFrom, clearAt);
        }

        highlightsOfRow.assign(last - first, {});
        for (std::size_t i = first; i < last; ++i) {
            const std::size_t index = i - first;
            const int tileRow = top + rowPitch * static_cast<int>(index % static_cast<std::size_t>(rowsOnScreen));
            std::vector<std::size_t> placed;
            if (index < static_cast<std::size_t>(rowsOnScreen)) {
                placed = builder.drawRow(rows[i], tileRow, lyricColour, sungColour, drawFrom, {clearJob});
            } else {
                // A row takes the place of the one sung rowsOnScreen rows
                // earlier, once all of that one is lit.
                const std::size_t replaced = index - static_cast<std::size_t>(rowsOnScreen);
                placed = builder.drawRow(rows[i], tileRow, lyricColour, sungColour, slotAt(rows[first + replaced].end),
                                         highlightsOfRow[replaced]);
            }
            for (const std::size_t glyph : placed) highlightsOfRow[index].push_back(builder.highlight(glyph));
        }
        for (std::size_t i = first; i < last; ++i) previousEnd = std::max(previousEnd, rows[i].end);
        screenUsed = true;
        first = last;
    }
    if (!rows.empty()) builder.clearScreen(slotAt(previousEnd + 1.0));

    const auto minimum = static_cast<std::size_t>(std::ceil(std::max(0.0, options.duration) * format::packetsPerSecond));
    return builder.finish(minimum);
}

}  // namespace tamo::cdg
