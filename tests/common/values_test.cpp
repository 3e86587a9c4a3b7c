#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/ipv4.h"
#include "common/mac.h"
#include "common/text.h"
#include "common/vlan_id.h"
#include "common/where.h"

namespace {

using namespace pavo;

TEST(Mac, KeepsItsSpelling) {
    const Mac small = Mac::parse("00:1b:92:00:09:01").value();
    const Mac capital = Mac::parse("00:1B:92:00:09:01").value();
    EXPECT_EQ(small.text() + capital.text(), "00:1b:92:00:09:0100:1B:92:00:09:01");
    EXPECT_EQ(small.bits(), 0x001b92000901u);
    EXPECT_TRUE(small.sameAddress(capital));
    EXPECT_FALSE(small == capital);
    EXPECT_NE(std::hash<Mac>{}(small), std::hash<Mac>{}(capital));
    EXPECT_TRUE(Mac().isZero());
    for (const char *text :
         {"", "00:1b:92:00:09", "00:1b:92:00:09:011", "00-1b-92-00-09-01", "00:1b:92:00:09:0g",
          "0:01b:92:00:09:01", "00:1b:92:00:09:0\n", "+0:1b:92:00:09:01"})
        EXPECT_FALSE(Mac::parse(text)) << text;
    EXPECT_FALSE(Mac::parse(std::string("00:1b:92:00:09:0\0", 17)));
}

TEST(Numbers, KeepWithinTheirRange) {
    for (const std::int64_t number : {-1L, 0L, 4095L, 65537L, 4294967297L})
        EXPECT_FALSE(VlanId::from(number)) << number;
    EXPECT_EQ(VlanId::from(4094)->number(), 4094u);
    PortSet ports;
    EXPECT_FALSE(ports.insert(IfNum(0)) || ports.insert(IfNum(768)) || ports.insert(IfNum(4'000'000'000)));
    EXPECT_TRUE(ports.empty());
    EXPECT_TRUE(ports.insert(IfNum(1)) && ports.insert(IfNum(767)));
    EXPECT_TRUE(ports.size() == 2 && ports.contains(IfNum(767)));
    EXPECT_FALSE(ports.contains(IfNum(2)) || ports.contains(IfNum(768)));
}

TEST(Ipv4, ParsesWhatItPrints) {
    for (const char *text : {"0.0.0.0", "10.0.0.1", "255.255.255.255"})
        EXPECT_EQ(Ipv4::parse(text).value().text(), text);
    for (const char *text : {"", "10.0.0", "10.0.0.256", "10.0.0.01", "10.0.0.1 ", "10.0.0.1\nno vlan 5"})
        EXPECT_FALSE(Ipv4::parse(text)) << text;
    EXPECT_FALSE(Ipv4::parse(std::string("10.0.0.1\0x", 10)));
}

TEST(Text, CutsAtCharactersAndCleansForTheLog) {
    EXPECT_EQ(cutToBytes("a\u00e9\u20ac", 6), "a\u00e9\u20ac");
    EXPECT_EQ(cutToBytes("a\u00e9\u20ac", 5), "a\u00e9");
    EXPECT_EQ(cutToBytes("a\u00e9\u20ac", 2), "a");
    EXPECT_EQ(printable("a\n\x1b\x7f\u00e9"), "a...\u00e9");
    EXPECT_TRUE(isUtf8("a\u00e9\u20ac\U0001f3a4"));
    for (const char *text : {"\x80", "\xc3", "\xc0\xaf", "\xe2\x82", "\xf8\x88\x80\x80", "\xc3(",
                             "\xe0\x80\x80", "\xf0\x80\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"})
        EXPECT_FALSE(isUtf8(text)) << text;
    EXPECT_EQ(wellFormed("a\u00e9\xc3(\xe2\x82\U0001f3a4\x80"), "a\u00e9?(??\U0001f3a4?");
    EXPECT_EQ(quoteText("a\n\x80"), "\"a.?\"");
    EXPECT_EQ(quoteText(std::string(59, 'x') + "\u00e9"), '"' + std::string(59, 'x') + "...\"");

    char field[4] = "###";
    copyText(field, "abcdef");
    EXPECT_EQ(std::string(field), "abc");
    copyText(field, "a");
    EXPECT_EQ(std::string(field, 4), std::string("a\0\0\0", 4));

    for (const auto &[text, number] : std::vector<std::pair<const char *, std::uint32_t>>{
             {"2", 2}, {"17 uplink", 17}, {"port 3", 0}, {"", 0}, {"-1", 0}, {"99999999999", UINT32_MAX}})
        EXPECT_EQ(leadingNumber(text), number) << text;
    EXPECT_EQ(wholeNumber("-20"), -20);
    for (const char *text : {"", "20.5", "20x", " 20", "+20", "0x14", "99999999999999999999"})
        EXPECT_FALSE(wholeNumber(text)) << text;
}

TEST(Text, LinesComeWholeOrInPieces) {
    for (const auto &[text, most, lines] : {std::tuple{"a\n\nb", 9u, "a||b|"},
                                            {"abcde\nf\n", 2u, "ab|cd|e|f|"},
                                            {"ab\ncd\n", 2u, "ab|cd|"},
                                            {"a\nstop\nb", 9u, "a|stop|"},
                                            {"", 9u, ""}}) {
        std::string got;
        forEachLine(text, most, [&got](std::string_view line) {
            got.append(line).append("|");
            return line != "stop";
        });
        EXPECT_EQ(got, lines);
    }
}

// As the compilers spell functions out.
TEST(Where, NamesTheFunctionAlone) {
    for (const auto &[pretty, name] : std::vector<std::pair<std::string_view, std::string_view>>{
             {"int main()", "main"},
             {"std::expected<void, std::function<void(int)> > pavo::{anonymous}::Foo::bar(int) const [with T "
              "= x(y)]",
              "bar"},
             {"pavo::f(std::vector<int>)::<lambda(auto:16&)>::<lambda()>", "f"},
             {"auto pavo::f(int)::(anonymous class)::operator()(int) const", "f"},
             {"pavo::Walk<Step>::~Walk()", "~Walk"},
             {"bool pavo::K::operator==(int) const", "operator=="},
             {"pavo::<lambda(int)>", ""}})
        EXPECT_EQ(Where::bareName(pretty), name) << pretty;

    const auto inside = [](Where where = std::source_location::current()) {
        return std::string(where.function());
    };
    EXPECT_EQ([&] { return inside(); }(), "TestBody");
}

}  // namespace
