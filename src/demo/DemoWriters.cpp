#include "demo/DemoWriters.h"

#include <pango/pangocairo.h>
#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "demo/DemoData.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Image.h"
#include "support/Process.h"
#include "support/Sqlite.h"

namespace bc {

namespace {

// Typed-stream integers: small values in one byte, larger ones behind a width marker.
void appendInteger(std::string& out, uint32_t value) {
    if (value < 0x80) {
        out += static_cast<char>(value);
        return;
    }
    const int width = value <= 0xFFFF ? 2 : 4;
    out += static_cast<char>(width == 2 ? 0x81 : 0x82);
    for (int i = 0; i < width; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

size_t utf16Length(std::string_view text) {
    size_t units = 0;
    for (unsigned char c : text) {
        if ((c & 0xC0) == 0x80) continue;
        units += c >= 0xF0 ? 2 : 1;
    }
    return units;
}

}  // namespace

std::string DemoData::demoBody(std::string_view text) {
    using namespace std::string_literals;
    std::string out =
        "\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@"
        "\x84\x84\x84\x12NSAttributedString\x00\x84\x84\x08NSObject\x00\x85"
        "\x92\x84\x84\x84\x08NSString\x01\x94\x84\x01+"s;
    appendInteger(out, static_cast<uint32_t>(text.size()));
    out += text;
    // One attribute run over the whole string (its length counted in UTF-16 units).
    out += "\x86\x84\x02iI\x01"s;
    appendInteger(out, static_cast<uint32_t>(utf16Length(text)));
    out +=
        "\x92\x84\x84\x84\x0cNSDictionary\x00\x94\x84\x01i\x01\x92\x84\x96\x96\x1d__"
        "kIMMessagePartAttributeName\x86"
        "\x92\x84\x84\x84\x08NSNumber\x00\x84\x84\x07NSValue\x00\x94\x84\x01*\x84\x99\x99\x00\x86\x86\x86"s;
    return out;
}

namespace demo {

std::string editSummary(const std::vector<std::pair<std::string, int64_t>>& versions) {
    plist_t root = plist_new_dict();
    plist_t parts = plist_new_dict();
    plist_t list = plist_new_array();
    for (const auto& [text, date] : versions) {
        plist_t version = plist_new_dict();
        const std::string body = DemoData::demoBody(text);
        plist_dict_set_item(version, "t", plist_new_data(body.data(), body.size()));
        plist_dict_set_item(version, "d", plist_new_uint(static_cast<uint64_t>(date)));
        plist_array_append_item(list, version);
    }
    plist_dict_set_item(parts, "0", list);
    plist_dict_set_item(root, "ec", parts);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    plist_free(root);
    std::string out(bytes ? bytes : "", bytes ? length : 0);
    std::free(bytes);
    return out;
}

image::Bitmap textPicture(const std::vector<std::string>& lines, int fontPixels, int margin,
                          int width) {
    std::string joined;
    for (const auto& line : lines) joined += (joined.empty() ? "" : "\n") + line;
    // Measured on a scratch surface first: the picture's size follows from the text.
    cairo_surface_t* scratch = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
    cairo_t* measure = cairo_create(scratch);
    PangoLayout* layout = pango_cairo_create_layout(measure);
    PangoFontDescription* font = pango_font_description_from_string("Noto Sans");
    pango_font_description_set_absolute_size(font, fontPixels * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    pango_font_description_free(font);
    pango_layout_set_text(layout, joined.c_str(), -1);
    int textWidth = 0, textHeight = 0;
    pango_layout_get_pixel_size(layout, &textWidth, &textHeight);
    image::Bitmap bitmap{std::max(width, textWidth + 2 * margin), textHeight + 2 * margin, {}};
    bitmap.pixels.assign(static_cast<size_t>(bitmap.width) * bitmap.height, 0xFFFFFFFFu);
    cairo_surface_t* surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(bitmap.pixels.data()), CAIRO_FORMAT_ARGB32, bitmap.width,
        bitmap.height, bitmap.width * 4);
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_move_to(cr, margin, margin);
    pango_cairo_update_layout(cr, layout);
    pango_cairo_show_layout(cr, layout);
    cairo_surface_flush(surface);
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    g_object_unref(layout);
    cairo_destroy(measure);
    cairo_surface_destroy(scratch);
    return bitmap;
}

const std::vector<std::string>& receiptLines() {
    static const std::vector<std::string> lines{
        "HARBOUR HARDWARE & KEYS",  "12 Quay Street",         "",
        "Key cutting x2      8.00", "Door lock        24.50", "Moving boxes x10 19.90",
        "TOTAL            52.40",   "Paid by card",           "Thank you for your visit"};
    return lines;
}

std::string receiptJPEG() {
    return image::encodeJPEG(textPicture(receiptLines(), 28, 40, 640), 92);
}

bool spokenVoiceMessage(const std::filesystem::path& file, const std::string& words) {
    if (!findExecutable("espeak-ng") || !findExecutable("ffmpeg")) return false;
    std::filesystem::create_directories(file.parent_path());
    const std::filesystem::path wav = files::temporarySibling(file);
    // espeak-ng connects to the sound server even to write a file, leaving its settings in the
    // user's home; with no server named it touches nothing.
    const auto spoken =
        runProcess({.executable = "env",
                    .arguments = {"PULSE_SERVER=none", "espeak-ng", "-w", wav.string(), words}});
    const auto converted =
        spoken.succeeded()
            ? runProcess({.executable = "ffmpeg",
                          .arguments = {"-nostdin", "-v", "error", "-y", "-i", wav.string(), "-c:a",
                                        "pcm_s16le", "-f", "caf", file.string()}})
            : spoken;
    std::error_code ignored;
    std::filesystem::remove(wav, ignored);
    if (!converted.succeeded())
        throw Error("Couldn't record the sample voice message: " + converted.standardError);
    return true;
}

std::string jpegImage(int width, int height, int seed) {
    image::Bitmap bitmap{width, height, std::vector<uint32_t>(static_cast<size_t>(width * height))};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto red = static_cast<uint32_t>((x * 255 / width + seed * 70) & 0xFF);
            const auto green = static_cast<uint32_t>((y * 255 / height + seed * 40) & 0xFF);
            const auto blue = static_cast<uint32_t>((seed * 90) & 0xFF);
            bitmap.pixels[static_cast<size_t>(y) * width + x] =
                0xFF000000u | red << 16 | green << 8 | blue;
        }
    }
    return image::encodeJPEG(bitmap, 85);
}

namespace {

void appendLE(std::string& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// Ogg's page checksum: CRC-32, polynomial 0x04C11DB7, neither reflected nor inverted.
uint32_t oggChecksum(std::string_view page) {
    uint32_t crc = 0;
    for (const char c : page) {
        crc ^= static_cast<uint32_t>(static_cast<unsigned char>(c)) << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x80000000u ? crc << 1 ^ 0x04C11DB7u : crc << 1;
    }
    return crc;
}

// One Ogg page of the stream holding whole packets (each under 255 bytes).
std::string oggPage(const std::vector<std::string>& packets, uint8_t flags, uint64_t granule,
                    uint32_t sequence) {
    std::string page = "OggS";
    page += '\0';
    page += static_cast<char>(flags);
    appendLE(page, granule, 8);
    appendLE(page, 0x4B455354, 4);  // stream serial number
    appendLE(page, sequence, 4);
    appendLE(page, 0, 4);  // checksum, filled in below
    page += static_cast<char>(packets.size());
    for (const auto& packet : packets) page += static_cast<char>(packet.size());
    for (const auto& packet : packets) page += packet;
    const uint32_t crc = oggChecksum(page);
    for (int i = 0; i < 4; ++i)
        page[22 + static_cast<size_t>(i)] = static_cast<char>(crc >> (8 * i));
    return page;
}

}  // namespace

void writeChatStorage(const std::filesystem::path& file, const std::string& inserts) {
    sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
    db.execute(
        "CREATE TABLE ZWACHATSESSION (Z_PK INTEGER PRIMARY KEY, ZSESSIONTYPE INTEGER, "
        "ZCONTACTJID VARCHAR, ZPARTNERNAME VARCHAR);"
        "CREATE TABLE ZWAGROUPMEMBER (Z_PK INTEGER PRIMARY KEY, ZCHATSESSION INTEGER, "
        "ZCONTACTNAME VARCHAR, ZFIRSTNAME VARCHAR, ZMEMBERJID VARCHAR);"
        "CREATE TABLE ZWAMEDIAITEM (Z_PK INTEGER PRIMARY KEY, ZFILESIZE INTEGER, ZLATITUDE FLOAT, "
        "ZLONGITUDE FLOAT, ZMEDIALOCALPATH VARCHAR, ZTITLE VARCHAR, ZVCARDNAME VARCHAR);"
        "CREATE TABLE ZWAMESSAGE (Z_PK INTEGER PRIMARY KEY, ZISFROMME INTEGER, ZMESSAGETYPE "
        "INTEGER, ZSTARRED INTEGER, ZCHATSESSION INTEGER, ZGROUPMEMBER INTEGER, ZMEDIAITEM "
        "INTEGER, ZMESSAGEDATE TIMESTAMP, ZFROMJID VARCHAR, ZPUSHNAME VARCHAR, ZSTANZAID VARCHAR, "
        "ZTEXT VARCHAR);");
    db.execute(inserts);
}

std::string opusSilence(int seconds) {
    constexpr int preSkip = 312;
    std::string head = "OpusHead";
    head += '\x01';  // version
    head += '\x01';  // one channel
    appendLE(head, preSkip, 2);
    appendLE(head, 48000, 4);
    appendLE(head, 0, 2);  // output gain
    head += '\0';          // channel mapping family
    std::string tags = "OpusTags";
    const std::string vendor = "Brindlecourt demo";
    appendLE(tags, vendor.size(), 4);
    tags += vendor;
    appendLE(tags, 0, 4);
    // 20 ms fullband frames that decode to silence.
    const std::string silentFrame = "\xF8\xFF\xFE";
    std::vector<std::string> frames(static_cast<size_t>(seconds) * 50, silentFrame);
    return oggPage({head}, 0x02, 0, 0) + oggPage({tags}, 0, 0, 1) +
           oggPage(frames, 0x04, static_cast<uint64_t>(seconds) * 48000, 2);
}

}  // namespace demo
}  // namespace bc
