#include <gtest/gtest.h>

#include "sources/VCard.h"

namespace bc {
namespace {

// A tiny JPEG header and a PNG signature are enough to count as images; base64 of each.
const std::string jpegBytes("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00", 11);
const std::string pngBytes("\x89PNG\r\n\x1A\n\x00\x00\x00\x0DIHDR", 16);
constexpr const char* pngBase64 = "iVBORw0KGgoAAAANSUhEUg==";

TEST(VCardParse, ReadsVersion3WithFoldingQuotedPrintableAndSeveralHandles) {
    const std::string text =
        "BEGIN:VCARD\r\n"
        "VERSION:3.0\r\n"
        "N:Ruiz;Ana;;;\r\n"
        "FN:Ana Ru\r\n"
        " iz\r\n"
        "item1.TEL;type=CELL;type=pref:+1 (555) 010-4477\r\n"
        "TEL;TYPE=HOME:555.010.9999\r\n"
        "EMAIL;TYPE=INTERNET:Ana.Ruiz@Example.com\r\n"
        "EMAIL;TYPE=WORK:ana@work.example\r\n"
        "PHOTO;ENCODING=b;TYPE=JPEG:/9j/4AAQ\r\n"
        " SkZJRgA=\r\n"
        "UID:card-1\r\n"
        "END:VCARD\r\n"
        "BEGIN:VCARD\n"
        "VERSION:2.1\n"
        "N;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:Dupr=C3=A9;=C3=89lo=\n"
        "die;;;\n"
        "TEL;CELL:+33 6 12 34 56 78\n"
        "END:VCARD\n";
    const auto cards = VCard::parse(text);
    ASSERT_EQ(cards.size(), 2u);
    EXPECT_EQ(cards[0], (ContactCard{.identifier = "card-1",
                                     .name = "Ana Ruiz",
                                     .phones = {"+1 (555) 010-4477", "555.010.9999"},
                                     .emails = {"Ana.Ruiz@Example.com", "ana@work.example"},
                                     .photo = jpegBytes}));
    EXPECT_EQ(cards[1].name, "\xC3\x89lodie Dupr\xC3\xA9");
    EXPECT_EQ(cards[1].phones, std::vector<std::string>{"+33 6 12 34 56 78"});
    EXPECT_FALSE(cards[1].photo);
}

TEST(VCardParse, ReadsVersion4UrisDataPhotosEscapesAndOtherCharacterSets) {
    const std::string text = std::string("BEGIN:VCARD\n") +
                             "VERSION:4.0\n"
                             "FN:Smith\\, Jr.\\nthe elder\n"
                             "TEL;VALUE=uri;TYPE=\"voice,cell\":tel:+1-555-010-2222\n"
                             "EMAIL:mailto:bo@example.org\n"
                             "PHOTO:data:image/png;base64," +
                             pngBase64 +
                             "\n"
                             "END:VCARD\n"
                             "BEGIN:VCARD\n"
                             "N;CHARSET=ISO-8859-1:M\xFCller;J\xF6rg\n"
                             "END:VCARD\n";
    const auto cards = VCard::parse(text);
    ASSERT_EQ(cards.size(), 2u);
    EXPECT_EQ(cards[0].name, "Smith, Jr.\nthe elder");
    EXPECT_EQ(cards[0].phones, std::vector<std::string>{"+1-555-010-2222"});
    EXPECT_EQ(cards[0].emails, std::vector<std::string>{"bo@example.org"});
    EXPECT_EQ(cards[0].photo, pngBytes);
    EXPECT_EQ(cards[1].name, "J\xC3\xB6rg M\xC3\xBCller");

    // UTF-16 with a byte-order mark.
    std::string utf16 = "\xFF\xFE";
    for (char c : std::string("BEGIN:VCARD\r\nFN:Zo\xEB\r\nTEL:5550104477\r\nEND:VCARD\r\n"))
        utf16 += {c, '\0'};
    const auto wide = VCard::parse(utf16);
    ASSERT_EQ(wide.size(), 1u);
    EXPECT_EQ(wide[0].name, "Zo\xC3\xAB");
    EXPECT_EQ(wide[0].phones, std::vector<std::string>{"5550104477"});
}

TEST(VCardParse, KeepsWhatItCanOfBadInput) {
    const std::string text =
        " continuation with nothing before it\n"
        "FN:Outside any card\n"
        "BEGIN:VCARD\n"
        "this line has no colon\n"
        "X-UNKNOWN;FOO=\"a:b;c\":whatever\n"
        "item2.X-ABLabel:_$!<Other>!$_\n"
        ":no name\n"
        "TEL:\n"
        "PHOTO;ENCODING=b:aGVsbG8gd29ybGQ=\n"
        "PHOTO;ENCODING=b:!!!not base64!!!\n"
        "PHOTO;VALUE=uri:https://example.org/face.jpg\n"
        "TEL:555-010-3333\n"
        "EMAIL;TYPE=\"unterminated:nobody@example.org\n"
        "END:VCARD\n"
        "BEGIN:VCARD\n"
        "N:;;;;\n"
        "EMAIL:quiet@example.org\n"
        "BEGIN:VCARD\n"
        "FN:Never ended\n"
        "TEL:555 010 4444";
    const auto cards = VCard::parse(text);
    ASSERT_EQ(cards.size(), 3u);
    EXPECT_EQ(cards[0].name, "");
    EXPECT_EQ(cards[0].phones, std::vector<std::string>{"555-010-3333"});
    EXPECT_FALSE(cards[0].photo) << "neither text, broken base64 nor a link is a photo";
    EXPECT_EQ(cards[1].name, "");
    EXPECT_EQ(cards[1].emails, std::vector<std::string>{"quiet@example.org"});
    EXPECT_EQ(cards[2].name, "Never ended");
    EXPECT_EQ(cards[2].phones, std::vector<std::string>{"555 010 4444"});
}

TEST(VCardParse, CardsWithoutUidKeepTheirIdentifierAcrossReads) {
    const std::string one = "BEGIN:VCARD\nFN:One\nTEL:1\nEND:VCARD\n";
    const std::string two = "BEGIN:VCARD\nFN:Two\nTEL:2\nEND:VCARD\n";
    const auto first = VCard::parse(one + two);
    const auto again = VCard::parse(two + one);
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0].identifier, again[1].identifier);
    EXPECT_EQ(first[1].identifier, again[0].identifier);
    EXPECT_NE(first[0].identifier, first[1].identifier);
}

}  // namespace
}  // namespace bc
