#include "json_writer.h"

#include <sstream>

namespace tamo::core {

void appendJsonString(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    out.reserve(out.size() + text.size() + 2);
    out.push_back('"');
    for (char ch : text) {
        const auto byte = static_cast<unsigned char>(ch);
        switch (byte) {
            case 8: out += "\\b"; break;
            case 9: out += "\\t"; break;
            case 10: out += "\\n"; break;
            case 12: out += "\\f"; break;
            case 13: out += "\\r"; break;
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            default:
                if (byte < 32) {
                    out += "\\u00";
                    out.push_back(hex[byte >> 4]);
                    out.push_back(hex[byte & 15]);
                } else {
                    out.push_back(ch);
                }
        }
    }
    out.push_back('"');
}

std::string jsonString(std::string_view text) {
    std::string out;
    appendJsonString(out, text);
    return out;
}

void appendJsonFloat(std::string& out, double value) {
    std::ostringstream stream;
    stream << value;
    out += stream.str();
}

void appendJsonSong(std::string& out, const Song& song) {
    out += "{\"id\":";
    out += std::to_string(song.id);
    out += ",\"path\":";
    appendJsonString(out, song.path);
    out += ",\"title\":";
    appendJsonString(out, song.title);
    out += ",\"artist\":";
    appendJsonString(out, song.artist);
    out += ",\"format\":";
    appendJsonString(out, song.format);
    out += ",\"cdgPath\":";
    appendJsonString(out, song.cdgPath);
    out.push_back('}');
}

namespace {

// The fields that queue entries and history entries share, up to the song.
void appendEntryFields(std::string& out, std::int32_t id, std::int32_t singerId, std::string_view singer) {
    out += "{\"id\":";
    out += std::to_string(id);
    out += ",\"singerId\":";
    out += std::to_string(singerId);
    out += ",\"singer\":";
    appendJsonString(out, singer);
}

}  // namespace

void appendJsonEntry(std::string& out, const QueueEntry& entry) {
    appendEntryFields(out, entry.id, entry.singerId, entry.singer);
    out += ",\"song\":";
    appendJsonSong(out, entry.song);
    out.push_back('}');
}

void appendJsonHistoryEntry(std::string& out, const HistoryEntry& entry) {
    appendEntryFields(out, entry.id, entry.singerId, entry.singer);
    out += ",\"playedAt\":";
    appendJsonFloat(out, entry.playedAt);
    out += ",\"song\":";
    appendJsonSong(out, entry.song);
    out.push_back('}');
}

}  // namespace tamo::core
