#include "tests/support/test.h"

#include "parameter_notes.h"
#include "part_names.h"

namespace morva_test {
namespace {

std::vector<std::string> partNames(const ::osg::NodePtr& root, bool rename) {
    const node_ref held(root);
    std::vector<std::string> names;
    for (const morva::host::named_part& part : morva::host::namedParts(root, rename)) {
        const ::osg::Char8* now = getName(part.node);
        EXPECT_EQ(part.name, now != nullptr ? now : "");
        names.push_back(part.name);
    }
    return names;
}

TEST(PartNames, ArePathsAndUnique) {
    const auto scene = [] {
        node_list bolts;
        for (const char* name : {"bolt", "bolt", "bolt~2", "bolt"})
            bolts.push_back(named(name, meshNode(quads(1))));
        return named("engine", group({named("block", group(bolts)), group({meshNode(quads(1))})}));
    };
    EXPECT_EQ(
        partNames(scene(), true),
        (std::vector<std::string>{"engine/block/bolt", "engine/block/bolt~2",
                                  "engine/block/bolt~2~2", "engine/block/bolt~3", "engine/#1/#0"}));
    EXPECT_EQ(partNames(scene(), false),
              (std::vector<std::string>{"bolt", "bolt", "bolt~2", "bolt", ""}));

    const ::osg::NodePtr nameless = meshNode(quads(1)); // takes the name of its core
    setName(nameless->getCore(), "core");
    EXPECT_EQ(partNames(group({nameless}), true), std::vector<std::string>{"#0/core"});
}

TEST(PartNames, AreSafeInsideJson) {
    const std::pair<const char*, const char*> cases[] = {
        {"plain", "plain"},
        {"a\"b\\c/d", "a_b_c_d"},
        {"tab\tline\nend\x7f", "tab_line_end_"},
        {"Gel\xC3\xA4nde", "Gel\xC3\xA4nde"}, // valid text stays
        {"Gel\xE4nde", "Gel_nde"},            // an 8-bit code page does not
        {"\xC0\xAF", "__"},                   // overlong
        {"\xED\xA0\x80", "___"},              // half of a surrogate pair
        {"cut \xE2\x82", "cut __"},           // ends inside a letter
    };
    for (const auto& [name, safe] : cases)
        EXPECT_EQ(morva::host::safeName(name), safe);
}

TEST(MakeTreeSafe, MendsNamesAndAttributesThatNeedIt) {
    const node_ref root(named("top \"1\"", group({named("caf\xC3\xA9 a/b", group())})));
    const ::osg::NodePtr child = root->getChild(0);
    setName(root->getCore(), "back\\slash");
    setName(child->getCore(), "\xFF");
    const auto attributes = ::osg::StringAttributeMap::create();
    attributes->setAttribute("a \"key\"", "quoted \"value\" \\");
    attributes->setAttribute("b", "two\nlines \xFF");
    root->addAttachment(attributes);
    const auto plain = ::osg::StringAttributeMap::create();
    plain->setAttribute("k", "v");
    child->addAttachment(plain);
    morva::host::makeTreeSafe(root.get());

    EXPECT_STREQ(getName(root.get()), "top _1_");
    EXPECT_STREQ(getName(root->getCore()), "back_slash");
    EXPECT_STREQ(getName(child), "caf\xC3\xA9 a/b");
    EXPECT_STREQ(getName(child->getCore()), "_");
    const ::osg::FieldContainerType& type = ::osg::StringAttributeMap::getClassType();
    const auto mended = ::osg::StringAttributeMapPtr::dcast(root->findAttachment(type));
    EXPECT_EQ(mended->getAttribute("a _key_"), "quoted \"value\" \\") << "escaped in the file";
    EXPECT_EQ(mended->getAttribute("b"), "two_lines _");
    EXPECT_TRUE(::osg::StringAttributeMapPtr::dcast(child->findAttachment(type)) == plain);
}

TEST(Parameters, GetAWorkerPerProcessorUnlessTheySay) {
    const std::string processors = std::to_string(std::thread::hardware_concurrency());
    for (const auto& [given, expected] : {std::pair<std::string, std::string>{"", ""},
                                          {"opt(1)", "opt(1),numthreads(" + processors + ")"},
                                          {"NumThreads(1),opt(1)", "NumThreads(1),opt(1)"}})
        EXPECT_EQ(morva::host::withThreads(given), expected);
}

} // namespace
} // namespace morva_test
