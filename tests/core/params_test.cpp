#include "tests/support/test.h"

#include <morva/core/morva_osg_params.h>
#include <morva/idmap/morva_filetools.h>

#include <cctype>
#include <locale>

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

TEST(ParseOptTreeParams, TheFirstOfEqualKeysStaysAndTheTextToo) {
    std::string text = "Opt(2),opt(1)tail,a(b(c)),x)y(z"; // the rest is told by the twin below
    EXPECT_EQ(parseOptTreeParams(text), (parameter_map{{"opt", "2"}, {"a", "b(c"}, {"x)y", "z"}}));
    EXPECT_EQ(text, "Opt(2),opt(1)tail,a(b(c)),x)y(z");
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
    std::mt19937 random(5);
    const std::string pieces[] = {
        "0", "1",    "2",     "-", "+",    " ",          "x",
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

/// All fields in one list, so that one comparison tells all.
texts listed(const mergeGeo_setup& s) {
    const int numbers[] = {s.vertexcolor,    s.texcoords,      s.optimizetc,     s.opt,
                           s.numthreads,     s.silent,         s.storeondisk,    s.toworld,
                           s.flat,           s.cacheopt,       s.calcnormals,    s.addcolorstex,
                           s.deleteunusedtc, s.mergesamename,  s.mergehierarchy, s.ignorematerial,
                           s.alphageometry,  s.keeprenderfalse};
    texts fields;
    for (const int number : numbers)
        fields.push_back(std::to_string(number));
    fields.push_back(s.idmap);
    return fields;
}

// One key at a time: each has to reach its own field and no other.
TEST(MergeGeoSetup, EveryKeyReachesItsField) {
    const texts defaults = {"-1", "2", "2", "1", "1", "0", "0", "1", "1", "0",
                            "0",  "0", "1", "0", "0", "0", "0", "0", ""};
    EXPECT_EQ(listed(mergeGeo_setup()), defaults);
    EXPECT_EQ(listed(mergeGeo_setup(parse("nokey(1),maxtris(3)"))), defaults);
    // Parameter, its place in the list, the value there.
    std::istringstream rows(
        "vertexcolor(1000) 0 1000    texcoords(-1) 1 -1        optimizeTC(5) 2 5 "
        "opt(3) 3 3                  opt(rubbish) 3 0          numthreads(8) 4 8 "
        "silent(1) 5 1               storeondisk(1) 6 1        toworld(false) 7 0 "
        "flat(0) 8 0                 flat(TRUE) 8 0            cacheopt(true) 9 1 "
        "calcnormals(true) 10 1      addColorsTex(true) 11 1   deleteunusedtc(false) 12 0 "
        "mergesamename(true) 13 1    mergehierarchy(true) 14 1 ignorematerial(true) 15 1 "
        "alphaGeometry(true) 16 1    keeprenderfalse(true) 17 1 "
        "idmap(some_NAME) 18 some_NAME");
    std::string parameter, value;
    for (std::size_t field = 0; rows >> parameter >> field >> value;) {
        texts expected = defaults;
        expected.at(field) = value;
        EXPECT_EQ(listed(mergeGeo_setup(parse(parameter))), expected) << parameter;
    }
    EXPECT_EQ(mergeGeo_setup(parse("idmap(Some Name)")).idmap, "Some Name");
}

} // namespace
