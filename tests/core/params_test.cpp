#include <morva/driver/morva_osg_params.h>
#include <morva/idmap/morva_filetools.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <locale>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace morva::osg;
using parameter_map = std::map<std::string, std::string>;
using texts = std::vector<std::string>;

parameter_map parse(std::string text) { return parseOptTreeParams(text); }

TEST(SplitStringByDelimiter, TakesRunsOfDelimitersAsOne) {
    const struct {
        std::string text, delimiters;
        texts tokens;
    } rows[] = {{"1::3", ":", {"1", "3"}},
                {"", ":", {}},
                {":::", ":", {}},
                {"::a:", ":", {"a"}},
                {"a,b", "", {"a,b"}},
                {"", "", {}},
                {"a,b;c", ",;", {"a", "b", "c"}},
                {" a ", ",", {" a "}}};
    for (const auto& row : rows) {
        texts tokens = {"old"};
        EXPECT_EQ(splitStringByDelimiter(row.text, tokens, row.delimiters), row.tokens.size() + 1);
        EXPECT_EQ(tokens.front(), "old");
        EXPECT_EQ(texts(tokens.begin() + 1, tokens.end()), row.tokens) << row.text;
        // The one of the library's outer namespace empties its list first.
        EXPECT_EQ(morva::splitStringByDelimiter(row.text, tokens, row.delimiters),
                  row.tokens.size());
        EXPECT_EQ(tokens, row.tokens) << row.text;
    }
}

TEST(ParseOptTreeParams, ReadsKeysAndValues) {
    const struct {
        const char* text;
        parameter_map expected;
    } rows[] = {
        {",,opt(1),,", {{"opt", "1"}}},
        {"Opt(2),opt(1)tail", {{"opt", "2"}}},
        {"opt(,opt),prefix(a,b)", {}},
        {"(),help(),x)y(z", {{"", ""}, {"help", ""}, {"x)y", "z"}}},
        {" opt( A ),a(b(c))", {{" opt", " A "}, {"a", "b(c"}}},
        {"opt(1),maxtris(5000),flat(true)", {{"opt", "1"}, {"maxtris", "5000"}, {"flat", "true"}}},
        {"\xC4(\xC4)", {{"\xC4", "\xC4"}}}, // bytes above ASCII are left alone
    };
    for (const auto& row : rows) {
        std::string text = row.text;
        EXPECT_EQ(parseOptTreeParams(text), row.expected) << row.text;
        EXPECT_EQ(text, row.text);
    }
    texts tokens = {"a(2)", "b(3)"};
    parameter_map target = {{"a", "1"}};
    buildParameterMap(tokens, target);
    EXPECT_EQ(target, (parameter_map{{"a", "1"}, {"b", "3"}}));
}

/// The parser again, one byte at a time and without any search.
parameter_map parse_bytewise(const std::string& text) {
    parameter_map map;
    std::string key, value;
    bool open = false, close = false, value_ended = false;
    const auto end_of_token = [&] {
        if (open && close)
            map.insert({key, value});
        key.clear();
        value.clear();
        open = close = value_ended = false;
    };
    for (const char c : text) {
        if (c == ',') {
            end_of_token();
            continue;
        }
        const bool first_close = c == ')' && !close;
        close = close || c == ')';
        if (!open && c == '(')
            open = true;
        else if (!open)
            key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (first_close)
            value_ended = true;
        else if (!value_ended)
            value += c;
    }
    end_of_token();
    return map;
}

TEST(ParseOptTreeParams, AgreesWithABytewiseParserOnRubbish) {
    std::mt19937 random(2024);
    const std::string alphabet("(((())),,,,aAbB optZ1_\xE4\n\0", 24);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t length = random() % 30; length > 0; --length)
            text += round % 4 == 0 ? static_cast<char>(random() % 256)
                                   : alphabet[random() % alphabet.size()];
        ASSERT_EQ(parse(text), parse_bytewise(text)) << testing::PrintToString(text);
    }
}

bool two_stream_reads(const std::string& text) {
    std::stringstream stream(text);
    bool flag = false;
    if (!(stream >> flag)) {
        stream.clear();
        stream.setf(std::ios_base::boolalpha);
        stream >> flag;
    }
    return flag;
}

template <typename Number> Number stream_read(const std::string& text) {
    Number number = 0;
    std::stringstream(text) >> number;
    return number;
}

TEST(String2X, ReadsAsRealStreamsDo) {
    for (const char* yes : {"true", "1", "2", " true ", "1x", "truex"})
        EXPECT_TRUE(string2X<bool>(yes)) << yes;
    for (const char* no : {"", "false", "0", "TRUE", "yes", "tru", "2x", "2 false"})
        EXPECT_FALSE(string2X<bool>(no)) << no;
    std::mt19937 random(5);
    const std::string pieces[] = {
        "0", "1",    "27",    "-", "+",    " ",          "x",
        ".", "true", "false", "t", "TRUE", "2147483648", "99999999999999999999"};
    for (int round = 0; round < 8000; ++round) {
        std::string text;
        for (std::size_t n = random() % 5; n > 0; --n)
            text += pieces[random() % std::size(pieces)];
        ASSERT_EQ(string2X<bool>(text), two_stream_reads(text)) << '"' << text << '"';
        ASSERT_EQ(string2X<int>(text), stream_read<int>(text)) << '"' << text << '"';
        ASSERT_EQ(string2X<unsigned int>(text), stream_read<unsigned int>(text)) << text;
    }
}

TEST(String2Float, ABlankTextRepeatsTheOneBefore) {
    texts input = {"1.5", " ", "x", "", "2e3z", "\t", "-4"};
    std::vector<float> values = {9};
    string2float(input, values);
    EXPECT_EQ(values, (std::vector<float>{9, 1.5f, 1.5f, 0, 0, 2000, 2000, -4}));
}

struct comma_numbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "wahr"; }
};

TEST(String2X, DoesNotFollowTheGlobalLocale) {
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new comma_numbers));
    texts input = {"1.5"};
    std::vector<float> values;
    string2float(input, values);
    const int number = string2X<int>("1.500");
    const bool flag = string2X<bool>("true");
    std::locale::global(before);
    EXPECT_EQ(values.front(), 1.5f);
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(flag);
}

TEST(OptTreeDoc, Has23LinesForPeople) {
    const std::string doc = optTreeDoc();
    EXPECT_EQ(std::count(doc.begin(), doc.end(), '\n'), 23);
    EXPECT_EQ(doc.back(), '\n');
    EXPECT_EQ(doc.find("Type of parameter & parameter name : description [default value or \"-\" "
                       "if not set]\n\n"),
              0U);
    EXPECT_NE(doc.find("\nbool toworld: Vertex positions are tranformed to world coordinates "
                       "[true]\n"),
              std::string::npos);
    EXPECT_NE(doc.find("\n\nExample: opt(1),maxtris(5000),flat(true),idmap(false)\n"),
              std::string::npos);
}

/// All fields in one text, so that one comparison tells all.
std::string listed(const mergeGeo_setup& s) {
    std::ostringstream out;
    out << s.vertexcolor << ' ' << s.texcoords << ' ' << s.optimizetc << ' ' << s.opt << ' '
        << s.numthreads << " | " << s.silent << s.storeondisk << s.toworld << s.flat << s.cacheopt
        << s.calcnormals << s.addcolorstex << s.deleteunusedtc << s.mergesamename
        << s.mergehierarchy << s.ignorematerial << s.alphageometry << s.keeprenderfalse << " | "
        << s.idmap;
    return out.str();
}

// One key at a time: each has to reach its own field and no other.
TEST(MergeGeoSetup, EveryKeyReachesItsField) {
    EXPECT_EQ(listed(mergeGeo_setup()), "-1 2 2 1 1 | 0011000100000 | ");
    const struct {
        const char* parameter;
        const char* expected;
    } rows[] = {
        {"", "-1 2 2 1 1 | 0011000100000 | "},
        {"nokey(1),maxtris(3)", "-1 2 2 1 1 | 0011000100000 | "},
        {"vertexcolor(1000)", "1000 2 2 1 1 | 0011000100000 | "},
        {"texcoords(-1)", "-1 -1 2 1 1 | 0011000100000 | "},
        {"optimizeTC(5)", "-1 2 5 1 1 | 0011000100000 | "},
        {"opt(3)", "-1 2 2 3 1 | 0011000100000 | "},
        {"numthreads(8)", "-1 2 2 1 8 | 0011000100000 | "},
        {"silent(1)", "-1 2 2 1 1 | 1011000100000 | "},
        {"storeondisk(1)", "-1 2 2 1 1 | 0111000100000 | "},
        {"toworld(false)", "-1 2 2 1 1 | 0001000100000 | "},
        {"flat(0)", "-1 2 2 1 1 | 0010000100000 | "},
        {"cacheopt(true)", "-1 2 2 1 1 | 0011100100000 | "},
        {"calcnormals(true)", "-1 2 2 1 1 | 0011010100000 | "},
        {"addColorsTex(true)", "-1 2 2 1 1 | 0011001100000 | "},
        {"deleteunusedtc(false)", "-1 2 2 1 1 | 0011000000000 | "},
        {"mergesamename(true)", "-1 2 2 1 1 | 0011000110000 | "},
        {"mergehierarchy(true)", "-1 2 2 1 1 | 0011000101000 | "},
        {"ignorematerial(true)", "-1 2 2 1 1 | 0011000100100 | "},
        {"alphaGeometry(true)", "-1 2 2 1 1 | 0011000100010 | "},
        {"keeprenderfalse(true)", "-1 2 2 1 1 | 0011000100001 | "},
        {"idmap(Some Name)", "-1 2 2 1 1 | 0011000100000 | Some Name"},
        {"opt(rubbish)", "-1 2 2 0 1 | 0011000100000 | "},
        {"flat(TRUE)", "-1 2 2 1 1 | 0010000100000 | "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(listed(mergeGeo_setup(parse(row.parameter))), row.expected) << row.parameter;
}

} // namespace
