// Fields: numbers, defaults, text, bytes, description; base types.

#include "tests/support/test.h"

#include <OpenSG/OSGSFVecTypes.h>

#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/picking/morva_osg_attach_setup.h>

#include "scene_dump.h"

namespace {

using namespace osg;
using scene_test::byte_store, scene_test::samples;

TEST(ContainerDefaults, FieldsHaveTheirNumbersAndValues) {
    std::ifstream table(samples.parent_path() / "field_defaults.txt");
    std::size_t rows = 0;
    for (std::string type, row;
         std::getline(table >> std::ws, type, ':') && std::getline(table, row); ++rows) {
        SCOPED_TRACE(type);
        const FieldContainerRefPtr made(
            FieldContainerFactory::the()->createFieldContainer(type.c_str()));
        ASSERT_NE(made, NullFC);
        std::istringstream fields(row);
        for (std::string field, name; std::getline(fields >> std::ws, field, ',');) {
            SCOPED_TRACE(field);
            UInt32 id = 0;
            std::istringstream words(field);
            words >> id >> name;
            const FieldDescription* desc = made->getType().findFieldDescription(name.c_str());
            ASSERT_NE(desc, nullptr);
            EXPECT_EQ(desc->getFieldId(), id);
            EXPECT_EQ(desc->getFieldMask(), BitVector(1) << id);
            EXPECT_EQ(made->getField(id), made->getField(name.c_str()));
            if (std::string values, text; std::getline(words >> std::ws, values)) {
                EXPECT_EQ(made->getField(id)->getValueByStr(text), values);
            }
        }
    }
    EXPECT_EQ(rows, 12U);
    EXPECT_EQ(RefPtr<SwitchPtr>(Switch::create())->getField("no such field"), nullptr);
}

/// An attachment that is defined outside the layer, whose payload does not travel.
template <typename Attached, typename Payload> void expectFullMember(const char* field) {
    const RefPtr<NodePtr> node(Node::create());
    const typename Attached::PtrType made = Attached::create();
    const UInt32 group = Attached::getClassType().getGroupId();
    node->addAttachment(made);
    EXPECT_EQ(node->findAttachment(group), made);
    EXPECT_STREQ(FieldContainerFactory::the()->findGroupName(UInt16(group)), field);
    EXPECT_TRUE(made->getType().isDerivedFrom(Attachment::getClassType()));
    EXPECT_EQ(AttachmentPtr(made)->getField(field), made->getFieldPtr());
    const RefPtr<typename Attached::PtrType> other(Attached::create());
    other->getField().setAbstrValue(made->getField());
    EXPECT_TRUE(other->getField().getValue() == made->getField().getValue());
    // The base class's call deals with the base class's fields.
    EXPECT_EQ(made->getBinSize(Attached::SimpleFieldMask), 0u);
    byte_store store;
    made->copyToBin(store, FieldBits::AllFields);
    EXPECT_EQ(store.bytes.size(), made->getBinSize(FieldBits::AllFields));
    other->copyFromBin(store, FieldBits::AllFields);
    EXPECT_EQ(store.at, store.bytes.size());
    MField<Payload> many;
    many.pushValueByStr("anything");
    many.pushValueByStr("");
    std::string text;
    EXPECT_EQ(many.getValueByStr(text), "\"\", \"\"");
    const morva_test::stream_capture out(std::cout);
    many.dump();
    made->getField().dump();
    EXPECT_EQ(out.text(), "STMFST : \n\n");
}

TEST(AttachmentTypes, OfAnApplicationAreFullMembers) {
    expectFullMember<MorvaAttachBIH, morva::osg::BIHAttachPayload>("morvabih");
    expectFullMember<MorvaAttachSetup, morva::osg::SetupAttachPayload>("morvasetup");
}

TEST(BinaryForm, OfEveryTypeIsAsLongAsToldAndReadsBack) {
    const RefPtr<NodePtr> carrier(Node::create());
    for (UInt32 id = 1; id < 2000; ++id) {
        const FieldContainerType* type = FieldContainerFactory::the()->findType(id);
        if (type == nullptr || type->isAbstract())
            continue;
        SCOPED_TRACE(type->getCName());
        const FieldContainerRefPtr first(type->createFieldContainer()),
            second(type->createFieldContainer());
        if (const auto attachment = AttachmentPtr::dcast(first.get()); attachment != NullFC)
            carrier->addAttachment(attachment); // has a parent to tell of
        if (const auto named = AttachmentContainerPtr::dcast(first.get()); named != NullFC)
            setName(named, "named");
        byte_store written, again;
        first->copyToBin(written, FieldBits::AllFields);
        EXPECT_EQ(written.bytes.size(), first->getBinSize(FieldBits::AllFields));
        second->copyFromBin(written, FieldBits::AllFields);
        EXPECT_EQ(written.at, written.bytes.size());
        second->copyToBin(again, FieldBits::AllFields);
        EXPECT_EQ(again.bytes, written.bytes);
        // As transport left it: the parents entry is not backed by the parent's own list.
        if (const auto attachment = AttachmentPtr::dcast(second.get()); attachment != NullFC)
            attachment->getParents().clear();
    }
}

TEST(OwnedFields, CountWhateverWayTheyAreSet) {
    const RefPtr<SwitchMaterialPtr> from(SwitchMaterial::create());
    const RefPtr<NodePtr> first(makeCoredNode<Group>());
    from->addMaterial(SwitchMaterial::create());
    from->addMaterial(from->getMaterials(0));
    const auto counts = [&] {
        return std::make_pair(first->getCore().getRefCount(), from->getMaterial(0).getRefCount());
    };
    {
        const RefPtr<NodePtr> second(Node::create());
        const RefPtr<SwitchMaterialPtr> to(SwitchMaterial::create());
        to->addMaterial(SwitchMaterial::create());
        second->getField("core")->setAbstrValue(*first->getSFCore());
        to->getField("materials")->setAbstrValue(*from->getMFMaterials());
        EXPECT_EQ(counts(), std::make_pair(2u, 4u));
        byte_store store;
        first->copyToBin(store, Node::CoreFieldMask);
        second->copyFromBin(store, Node::CoreFieldMask);
        from->copyToBin(store, SwitchMaterial::MaterialsFieldMask);
        to->copyFromBin(store, SwitchMaterial::MaterialsFieldMask);
        EXPECT_EQ(counts(), std::make_pair(2u, 4u));
        const RefPtr<SwitchMaterialPtr> copy(SwitchMaterialPtr::dcast(from->shallowCopy()));
        EXPECT_EQ(counts(), std::make_pair(2u, 6u));
    }
    EXPECT_EQ(counts(), std::make_pair(1u, 2u));
}

TEST(Real16, KeepsEveryNumberOfItsOwnAndRoundsTheOthersToEven) {
    for (UInt32 bits = 0; bits < 0x10000; ++bits) {
        Real16 number;
        std::memcpy(static_cast<void*>(&number), &bits, sizeof(number));
        const Real16 again(static_cast<Real32>(number));
        ASSERT_TRUE(std::isnan(number) ? std::isnan(again)
                                       : std::memcmp(&again, &number, sizeof(number)) == 0);
    }
    const std::pair<Real32, Real32> table[] = {
        {2049.f, 2048.f}, {2051.f, 2052.f},       {65519.f, 65504.f}, {65520.f, INFINITY},
        {0x1p-25f, 0.f},  {0x1.8p-25f, 0x1p-24f}, {1e-40f, 0.f},      {-0x1.ffcp-15f, -0x1p-14f}};
    for (const auto& row : table)
        EXPECT_EQ(static_cast<Real32>(Real16(row.first)), row.second) << row.first;
}

/// What a field has for a text, and gives again.
template <class F> std::string textAgain(const char* text) {
    F field;
    field.pushValueByStr(text);
    std::string again = ">";
    return field.getValueByStr(again);
}

TEST(Fields, TextForms) {
    const std::pair<std::string, std::string> table[] = {
        {textAgain<SFReal32>("0.1"), "1.000000e-01"},
        {textAgain<SFVec3f>("1.5, -2 3e2 9"), "1.500000e+00  -2.000000e+00  3.000000e+02"},
        {textAgain<SFVec3f>("[1 2"), "0.000000e+00  2.000000e+00  0.000000e+00"},
        {textAgain<SFColor3f>("1 0 .5"), "1.000000e+00 0.000000e+00 5.000000e-01"},
        {textAgain<SFQuaternion>("0 0 2 1.5"),
         "0.000000e+00 0.000000e+00 1.000000e+00 1.500000e+00"}, // axis and angle
        {textAgain<SFBool>(" tRuE"), "TRUE"},
        {textAgain<SFBool>("1"), "FALSE"}, // as it was
        {textAgain<SFString>("a\"b"), "\"a\"b\""},
        {textAgain<SFString>("\"q\""), "\"\"q\"\""},
        {textAgain<SFInt16>("40000"), "-25536"},
        {textAgain<SFUInt8>("-1"), "255"},
        {textAgain<SFUInt64>("18446744073709551615"), "18446744073709551615"},
        {textAgain<SFInt32>("seven"), "0"},
        {textAgain<MFInt32>("-5"), ">-5"}}; // a multi field appends
    for (const auto& row : table)
        EXPECT_EQ(row.first, row.second);
    SFBool flag(true);
    flag.pushValueByStr("t");
    EXPECT_TRUE(flag.getValue());
    flag.pushValueByStr("FALSE");
    EXPECT_FALSE(flag.getValue());
    flag.setAbstrValue(SFInt32(1));
    EXPECT_FALSE(flag.getValue()) << "another type changes nothing";
    SFMatrix rows, again;
    std::string text;
    rows.pushValueByStr("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16");
    EXPECT_EQ(rows.getValue(), Matrix(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
    again.pushValueByStr(rows.getValueByStr(text).c_str());
    EXPECT_EQ(again.getValue(), rows.getValue());
    SFString kept("kept");
    kept.pushValueByStr(nullptr);
    EXPECT_EQ(kept.getValue(), "kept");
}

} // namespace
