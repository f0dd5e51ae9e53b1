#include "tests/support/test.h"

#include <morva/core/morva_osg_params.h>
#include <morva/idmap/morva_filetools.h>

#include <cctype>
#include <locale>

namespace {

using namespace morva::osg;
using parameter_map = std::map<std::string, std::string>;
using texts = std::vector<std::string>;

parameter_map parse(const std::string& text) {
    std::string given = text;
    parameter_map map = parseOptTreeParams(given);
    EXPECT_EQ(given, text);
    return map;
}

TEST(TokensOf, TakesRunsOfDelimitersAsOne) {
    const std::tuple<std::string, std::string, texts> rows[] = {{":1::3:", ":", {"1", "3"}},
                                                                {":::", ":", {}},
                                                                {"a,b", "", {"a,b"}},
                                                                {"", "", {}},
                                                                {"a,b;c", ",;", {"a", "b", "c"}}};
    for (const auto& [text, delimiters, tokens] : rows) {
        EXPECT_EQ(tokensOf(text, delimiters), tokens) << text;
        // Of the published ones one appends; that of the outer namespace empties its list first.
        texts list = {"old"};
        EXPECT_EQ(splitStringByDelimiter(text, list, delimiters), tokens.size() + 1);
        EXPECT_EQ(list.front(), "old");
        EXPECT_EQ(morva::splitStringByDelimiter(text, list, delimiters), tokens.size());
        EXPECT_EQ(list, tokens) << text;
    }
}

/// The parser again, one byte at a time and without any search.
parameter_map parseBytewise(const std::string& text) {
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
            key += char(std::tolower(static_cast<unsigned char>(c)));
        else if (first_close)
            value_ended = true;
        else if (!value_ended)
            value += c;
    }
    end_of_token();
    return map;
}

TEST(ParseOptTreeParams, AgreesWithABytewiseParserOnRubbish) {
    texts tokens = {"a(2)", "b(3)"};
    parameter_map target = {{"a", "1"}};
    buildParameterMap(tokens, target);
    EXPECT_EQ(target, (parameter_map{{"a", "1"}, {"b", "3"}}));
    EXPECT_EQ(parse("Opt(2),opt(1)tail,a(b(c)),x)y(z"),
              (parameter_map{{"opt", "2"}, {"a", "b(c"}, {"x)y", "z"}}));
    std::mt19937 random(seedOf(2024));
    const std::string alphabet("(((())),,,,aAbB optZ1_\xE4\n\0", 24);
    for (int round = 0; round < roundsOf(20000); ++round) {
        std::string text;
        for (std::size_t length = random() % 30; length > 0; --length)
            text += round % 4 == 0 ? char(random() % 256) : alphabet[random() % alphabet.size()];
        ASSERT_EQ(parse(text), parseBytewise(text)) << testing::PrintToString(text);
    }
}

/// For as long as it lives numbers have a comma in them, and true is another word.
class foreign_locale {
  public:
    foreign_locale()
        : before_(std::locale::global(std::locale(std::locale::classic(), new numbers))) {}
    foreign_locale(const foreign_locale&) = delete;
    foreign_locale& operator=(const foreign_locale&) = delete;
    ~foreign_locale() { std::locale::global(before_); }

  private:
    struct numbers : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
        std::string do_truename() const override { return "wahr"; }
    };
    std::locale before_;
};

// A number as far as it goes, or what is nearest to it; a flag that is no number is a word.
TEST(String2X, ReadsAsRealStreamsDoUnderAnyGlobalLocale) {
    const foreign_locale foreign;
    const std::tuple<std::string, bool, int, unsigned> rows[] = {
        {"1", true, 1, 1},
        {"0true", false, 0, 0},
        {"2", true, 2, 2},
        {" 7x", false, 7, 7},
        {"+3", true, 3, 3},
        {"-1", true, -1, ~0U},
        {"1.234", true, 1, 1},
        {"1,5", true, 1, 1},
        {"2147483648", true, 2147483647, 2147483648},
        {"99999999999999999999", true, 2147483647, ~0U},
        {" true", true, 0, 0},
        {"TRUE", false, 0, 0},
        {"false", false, 0, 0},
        {"t", false, 0, 0},
        {"-", false, 0, 0},
        {"", false, 0, 0}};
    for (const auto& [text, flag, number, count] : rows) {
        EXPECT_EQ(string2X<bool>(text), flag) << text;
        EXPECT_EQ(string2X<int>(text), number) << text;
        EXPECT_EQ(string2X<unsigned int>(text), count) << text;
    }
    texts input = {"1.5", " ", "x", "", "2e3z", "\t", "-4"}; // a blank one repeats the one before
    std::vector<float> values = {9};
    string2float(input, values);
    EXPECT_EQ(values, (std::vector<float>{9, 1.5f, 1.5f, 0, 0, 2000, 2000, -4}));
}

TEST(OptTreeDoc, IsTheTextThatPeopleKnow) {
    std::uint64_t hash = 14695981039346656037U; // FNV-1a
    for (const char c : optTreeDoc())
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    EXPECT_EQ(hash, 13284246797953909988U) << optTreeDoc();
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
    EXPECT_TRUE(isParameterKey("idmap") && isParameterKey("ambientocclusion"));
    EXPECT_FALSE(isParameterKey("Flat") || isParameterKey("centerbb") || isParameterKey(""));
}

} // namespace
