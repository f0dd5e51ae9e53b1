// Vectors, colours, matrices, rotations, lines, planes and bounding volumes.

#include "tests/support/test.h"

#include <OpenSG/OSGBoxVolume.h>
#include <OpenSG/OSGColor.h>
#include <OpenSG/OSGLine.h>
#include <OpenSG/OSGPlane.h>
#include <OpenSG/OSGQuaternion.h>

#include <type_traits>

namespace {

using namespace osg;

TEST(StreamForms, AreTheKnownOnesAndRestoreTheFormat) {
    EXPECT_EQ(testing::PrintToString(Pnt3f(1.5f, 2, -.25f)), "1.5, 2, -0.25");
    EXPECT_EQ(testing::PrintToString(Vec3b(65, -1, 0)), "65, -1, 0") << "numbers, not characters";
    EXPECT_EQ(testing::PrintToString(Color4ub(1, 2, 3, 255)), "1, 2, 3, 255");
    Matrix matrix;
    matrix.setTranslate(1, -1234.5678f, 3);
    std::ostringstream out;
    out << matrix << .12345f;
    EXPECT_EQ(out.str(), "   1.000    0.000    0.000    1.000 \n"
                         "   0.000    1.000    0.000 -1234.568 \n"
                         "   0.000    0.000    1.000    3.000 \n"
                         "   0.000    0.000    0.000    1.000 \n"
                         "0.12345");
}

TEST(VectorsAndColours, CompareWithinEpsOrderExactlyAndCompute) {
    const Real32 below = 9e-7f, above = 2e-6f, nan = std::nanf("");
    EXPECT_EQ(Pnt3f(1, 0, 0), Pnt3f(1, below, -below));
    EXPECT_NE(Pnt3f(0, 0, 0), Pnt3f(0, above, 0));
    EXPECT_NE(Vec2f(nan, 0), Vec2f(nan, 0));
    EXPECT_EQ(Color3f(0, 0, 0), Color3f(below, 0, 0));
    EXPECT_NE(Color4f(0, 0, 0, 0), Color4f(0, 0, 0, above));
    EXPECT_TRUE(Pnt3f(1, 2, 3) < Pnt3f(1, 2 + 1e-6f, 0) && !(Pnt3f() < Pnt3f()));
    Vec3f tiny(5e-7f, 0, 0), three(3, 0, 4);
    tiny.normalize();
    three.normalize();
    EXPECT_EQ(tiny[0], 5e-7f) << "shorter than Eps: as it was";
    EXPECT_FLOAT_EQ(three[2], .8f);
    EXPECT_EQ(Vec3f(1, 0, 0).cross(Vec3f(0, 1, 0)), Vec3f(0, 0, 1));
    EXPECT_EQ(Pnt3f(Vec2f(1, 2)), Pnt3f(1, 2, 0)) << "missing components are 0";
    EXPECT_EQ(Color3f(.25f, .5f, 1) * 2.f, Color3f(.5f, 1, 2));
}

/// Random matrices: rotations, scales, shears, mirrors, translations.
struct matrices {
    std::mt19937 rng{seedOf(9)};
    Real64 real(Real64 low, Real64 high) {
        return std::uniform_real_distribution<Real64>(low, high)(rng);
    }
    template <class T> Vector<T, 3> vector(Real64 reach) {
        return Vector<T, 3>(T(real(-reach, reach)), T(real(-reach, reach)), T(real(-reach, reach)));
    }
    template <class T> QuaternionBase<T> rotation() {
        return QuaternionBase<T>(vector<T>(1), T(real(-7, 7)));
    }
    template <class T> TransformationMatrix<T> any() {
        const T sign = rng() % 2 != 0 ? T(1) : T(-1);
        return composed(vector<T>(5), rotation<T>(),
                        Vector<T, 3>(T(real(.2, 4)), T(real(.2, 4)), T(real(.2, 4))) * sign,
                        rotation<T>());
    }
    /// Translation, rotation, and a scale along turned axes.
    template <class T>
    static TransformationMatrix<T> composed(const Vector<T, 3>& t, const QuaternionBase<T>& r,
                                            const Vector<T, 3>& s, const QuaternionBase<T>& axes) {
        TransformationMatrix<T> made, part;
        made.setTransform(t, r);
        part.setTransform(axes);
        made.mult(part);
        part.setTransform(Vector<T, 3>(), axes.inverse());
        TransformationMatrix<T> scale;
        scale.setScale(s);
        made.mult(scale);
        made.mult(part);
        return made;
    }
};

TEST(MatrixLayout, RowsInReadingOrderColumnsInMemory) {
    const Matrix matrix(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 1);
    EXPECT_EQ(matrix[3][0], 4.f);
    EXPECT_EQ(matrix.getValues()[1], 5.f);
    Matrix read, scale, move;
    read.setValue(matrix.getValues());
    EXPECT_EQ(read, matrix);
    read.setScale(7);
    read.setTranslate(Vec3f(1, 1, 1));
    EXPECT_EQ(read, Matrix(7, 2, 3, 1, 5, 7, 7, 1, 9, 10, 7, 1, 0, 0, 0, 1)) << "own places alone";
    read.setValue(matrix.getValues(), false);
    EXPECT_EQ(read[0][3], 4.f);
    // a * b first does b; perspective divides in the full form alone.
    scale.setScale(2);
    move.setTranslate(1, 0, 0);
    scale.multLeft(move);
    EXPECT_EQ(scale[3], Vec4f(1, 0, 0, 1));
    scale[0][3] = 1;
    Pnt3f p, full;
    scale.multMatrixPnt(Pnt3f(1, 0, 0), p);
    scale.multFullMatrixPnt(Pnt3f(1, 0, 0), full);
    EXPECT_TRUE(p == Pnt3f(3, 0, 0) && full == Pnt3f(1.5f, 0, 0));
}

template <class T> void expectTakenApartAndPutTogether(T tolerance) {
    matrices make;
    for (int round = 0; round < roundsOf(300); ++round) {
        const TransformationMatrix<T> matrix = make.any<T>();
        TransformationMatrix<T> inverse, product(matrix);
        ASSERT_TRUE(matrix.inverse(inverse));
        product.mult(inverse);
        EXPECT_TRUE(product.equals(TransformationMatrix<T>::identity(), tolerance));
        EXPECT_NEAR(matrix.det(), matrix.det3(), tolerance * std::abs(matrix.det()));
        Vector<T, 3> translation, scale;
        QuaternionBase<T> rotation, axes;
        matrix.getTransform(translation, rotation, scale, axes);
        TransformationMatrix<T> again = matrices::composed(translation, rotation, scale, axes);
        if constexpr (std::is_same_v<T, Real32>)
            again.setTransform(translation, rotation, scale, axes);
        EXPECT_TRUE(again.equals(matrix, tolerance)) << matrix << again;
        for (UInt32 i = 0; i < 3; ++i)
            EXPECT_EQ(scale[i] < 0, matrix.det3() < 0) << "all of one sign";
        EXPECT_NEAR(rotation.length(), 1, tolerance);
    }
}

TEST(MatrixParts, ComeTogetherAgain) {
    expectTakenApartAndPutTogether<Real32>(1e-4f);
    expectTakenApartAndPutTogether<Real64>(1e-10);
}

TEST(MatrixParts, OfSpecialMatrices) {
    Vec3f t, s(9, 9, 9);
    Quaternion r, so;
    Matrix matrix, half_turn;
    matrix.setScale(2, 3, 4);
    matrix.getTransform(t, r, s, so);
    EXPECT_EQ(s, Vec3f(2, 3, 4)) << "in the order of the axes";
    EXPECT_TRUE(r == Quaternion() && so == Quaternion());
    matrix.setScale(-1, 1, 1);
    matrix.getTransform(t, r, s, so);
    EXPECT_EQ(s, Vec3f(-1, -1, -1));
    r.getValue(half_turn);
    EXPECT_EQ(half_turn, Matrix(1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1));
    s = Vec3f(9, 9, 9);
    for (const Real32 first : {1.f, std::nanf("")}) {
        matrix = Matrix(first, 0, 0, 1, 0, 0, 0, 2, 0, 0, 1, 3, 0, 0, 0, 1);
        matrix.getTransform(t, r, s, so);
        EXPECT_EQ(t, Vec3f(1, 2, 3));
        EXPECT_EQ(s, Vec3f(9, 9, 9)) << "singular: untouched";
        EXPECT_EQ(r, Quaternion());
        EXPECT_FALSE(matrix.invert());
        EXPECT_EQ(matrix, Matrix::identity());
    }
}

TEST(Rotations, TurnByTheFormulaOfRodrigues) {
    matrices make;
    for (int round = 0; round < roundsOf(300); ++round) {
        SCOPED_TRACE(round);
        Vec3d axis = make.vector<Real64>(1);
        const Real64 angle = make.real(-3.2, 3.2);
        const QuaternionBase<Real64> turn(axis, angle);
        const Vec3d v = make.vector<Real64>(3);
        axis.normalize();
        const Vec3d expected = v * std::cos(angle) + axis.cross(v) * std::sin(angle) +
                               axis * (axis.dot(v) * (1 - std::cos(angle)));
        Vec3d by_quaternion, by_matrix, by_copy;
        turn.multVec(v, by_quaternion);
        TransformationMatrix<Real64> matrix;
        turn.getValue(matrix);
        matrix.multMatrixVec(v, by_matrix);
        QuaternionBase<Real64>(matrix).multVec(v, by_copy); // through every branch of the trace
        for (const Vec3d& turned : {by_quaternion, by_matrix, by_copy})
            EXPECT_TRUE(turned.equals(expected, 1e-12));
        const QuaternionBase<Real64> other = make.rotation<Real64>();
        QuaternionBase<Real64> both(turn);
        both.mult(other);
        Vec3d first, second, at_once;
        other.multVec(v, first);
        turn.multVec(first, second);
        both.multVec(v, at_once);
        EXPECT_TRUE(at_once.equals(second, 1e-12));
    }
    EXPECT_EQ(Quaternion(Vec3f(0, 0, 0), 1.f), Quaternion()) << "about no axis";
}

TEST(BoxVolumes, FollowTheirState) {
    const Pnt3f low(1, 1, 3), high(3, 2, 7), other(-1, 5, 4), far(99, 99, 99);
    const UInt16 valid = 1, empty = 2, fixed = 4, infinite = 8;
    const struct {
        UInt16 own, others, state; ///< of a box, of a point that extends it, afterwards
        Pnt3f min, max;
        bool grows; ///< by a plain point, too
    } table[] = {{valid, valid, valid, {-1, 1, 3}, {3, 5, 7}, true},
                 {valid, 9 | fixed, 9, {-1, 1, 3}, {3, 5, 7}, true},
                 {valid, valid | empty, valid, low, high, true},
                 {valid, 0, valid, low, high, true},
                 {valid | empty, 9 | fixed, 9 | fixed, other, other, true},
                 {valid | fixed, valid, valid | fixed, low, high, false},
                 {valid | infinite, valid, valid | infinite, low, high, false},
                 {empty, valid, empty, low, high, false},
                 {0, valid, 0, low, high, false}};
    for (const auto& row : table) {
        SCOPED_TRACE(&row - table);
        DynamicVolume box, by, grown;
        for (const Pnt3f& p : {low, high})
            box.extendBy(p);
        by.extendBy(other);
        box.getInstance().setState(row.own);
        by.getInstance().setState(row.others);
        for (DynamicVolume* volume : {&box, &by})
            volume->instanceChanged();
        grown = box;
        grown.extendBy(far);
        EXPECT_EQ(grown.getMax() == far, row.grows);
        box.extendBy(by);
        EXPECT_EQ(box.getState(), row.state);
        EXPECT_TRUE(box.getMin() == row.min && box.getMax() == row.max);
        Matrix moved;
        moved.setTranslate(10, 0, 0);
        box.transform(moved);
        EXPECT_EQ(box.getMin()[0], row.min[0] + (row.state & empty ? 0 : 10)) << "infinite, too";
    }
    DynamicVolume box;
    Pnt3f center(9, 9, 9);
    box.getCenter(center);
    EXPECT_TRUE(box.getState() == (valid | empty) && center == Pnt3f());
    EXPECT_EQ(box.getScalarVolume(), 0.f);
    for (const Pnt3f& p : {low, high})
        box.extendBy(p);
    box.setEmpty();
    box.extendBy(low);
    EXPECT_EQ(box.getScalarVolume(), 2.f * 1 * 4) << "a state set on the outside is lost";
    box.getCenter(center);
    EXPECT_EQ(center, Pnt3f(2, 1.5f, 5));
    box.getInstance().setState(valid | infinite);
    box.getInstance().setEmpty();
    EXPECT_EQ(box.getInstance().getState(), valid | empty);
}

TEST(BoxVolumes, IntersectAndTurn) {
    const BoxVolume unit(0, 0, 0, 1, 1, 1);
    EXPECT_FALSE(unit.intersect(Pnt3f(0, 0, 0))) << "strictly inside";
    EXPECT_TRUE(unit.intersect(Pnt3f(.5f, .5f, .5f)));
    EXPECT_TRUE(unit.intersect(BoxVolume(1, 1, 1, 2, 2, 2))) << "touching counts";
    EXPECT_FALSE(unit.intersect(BoxVolume(1.1f, 0, 0, 2, 1, 1)));
    EXPECT_FALSE(unit.intersect(BoxVolume()));
    const struct {
        Line line;
        Real32 enter, exit; ///< enter below 0: a miss
    } rays[] = {{Line(Pnt3f(.5f, .5f, .5f), Vec3f(0, 0, 9)), 0, .5f},
                {Line(Pnt3f(.5f, .5f, -2), Vec3f(0, 0, 1)), 2, 3},
                {Line(Pnt3f(.5f, .5f, -2), Vec3f(0, 0, -1)), -1, 0},
                {Line(Pnt3f(1.5f, .5f, -2), Vec3f(0, 0, 1)), -1, 0},
                {Line(Pnt3f(0, .5f, -2), Vec3f(0, 0, 1)), 2, 3},
                {Line(Pnt3f(-1, 0, -1), Pnt3f(2, 3, 2)), std::sqrt(3.f), std::sqrt(3.f)}};
    for (const auto& ray : rays) {
        Real32 enter = -7, exit = -7;
        const bool hit = unit.intersect(ray.line, enter, exit);
        EXPECT_EQ(hit, ray.enter >= 0 && ray.enter <= ray.exit) << ray.line.getPosition();
        EXPECT_EQ(unit.intersect(ray.line), hit);
        if (hit) {
            EXPECT_FLOAT_EQ(enter, ray.enter);
            EXPECT_FLOAT_EQ(exit, ray.exit);
        }
    }
    EXPECT_TRUE(BoxVolume().intersect(Line(Pnt3f(0, 0, -2), Vec3f(0, 0, 1)))) << "not asked";
    matrices make;
    for (int round = 0; round < roundsOf(50); ++round) {
        const Matrix matrix = make.any<Real32>();
        BoxVolume turned(unit), expected;
        turned.transform(matrix);
        for (int corner = 0; corner < 8; ++corner) {
            Pnt3f p(Real32(corner & 1), Real32(corner >> 1 & 1), Real32(corner >> 2));
            matrix.multMatrixPnt(p, p);
            expected.extendBy(p);
        }
        EXPECT_EQ(turned.getMin(), expected.getMin());
        EXPECT_EQ(turned.getMax(), expected.getMax());
    }
    // The translation is first in the sum: single steps of 1 are lost on it, their sum would not
    // be.
    BoxVolume far(1, 1, 1, 1, 1, 1), empty;
    far.transform(Matrix(1, 1, 1, 16777216, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1));
    EXPECT_EQ(far.getMin()[0], 16777216.f);
    empty.transform(make.any<Real32>());
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_EQ(empty.getMax(), Pnt3f());
}

TEST(SphereVolumes, HoldWhatTheyWereExtendedBy) {
    matrices make;
    for (int round = 0; round < roundsOf(50); ++round) {
        DynamicVolume ball(DynamicVolume::SPHERE_VOLUME);
        std::vector<Pnt3f> points(10);
        for (Pnt3f& p : points)
            ball.extendBy(p = Pnt3f(make.vector<Real32>(5)));
        const auto& sphere = dynamic_cast<const SphereVolume&>(ball.getInstance());
        for (const Pnt3f& p : points)
            EXPECT_LE(sphere.getCenter().dist(p), sphere.getRadius() * 1.0001f);
        DynamicVolume box(ball);
        box.morphToType(DynamicVolume::BOX_VOLUME);
        EXPECT_TRUE(box.intersect(ball) && !box.isEmpty());
    }
    SphereVolume grown; // by no more than needed
    for (const Pnt3f& p : {Pnt3f(0, 0, 0), Pnt3f(2, 0, 0), Pnt3f(1, 3, 0)})
        grown.extendBy(p);
    EXPECT_EQ(grown.getCenter(), Pnt3f(1, 1, 0));
    EXPECT_EQ(grown.getRadius(), 2.f);
    Real32 enter, exit;
    EXPECT_TRUE(grown.intersect(Line(Pnt3f(-4, 1, 0), Vec3f(1, 0, 0)), enter, exit));
    EXPECT_TRUE(enter == 3 && exit == 7);
    EXPECT_TRUE(grown.intersect(Line(Pnt3f(2, 1, 0), Vec3f(1, 0, 0)), enter, exit));
    EXPECT_TRUE(enter == 0 && exit == 1) << "from within";
}

TEST(Lines, HaveUnitDirectionsAndHitTrianglesFromBothSides) {
    EXPECT_EQ(Line(Pnt3f(1, 0, 0), Vec3f(0, 3, 0)).getDirection(), Vec3f(0, 1, 0));
    EXPECT_EQ(Line(Pnt3f(1, 0, 0), Vec3f(0, 0, 0)).getDirection(), Vec3f(0, 0, 0));
    EXPECT_EQ(Line(Pnt3f(1, 0, 0), Pnt3f(1, 0, 5)).getDirection(), Vec3f(0, 0, 1));
    EXPECT_FLOAT_EQ(Line(Pnt3f(0, 0, 0), Vec3f(1, 0, 0)).distance(Pnt3f(7, 3, 4)), 5.f);
    const Pnt3f a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
    for (const Real32 z : {-2.f, 2.f}) {
        Real32 t = 0;
        Vec3f normal;
        const Line down(Pnt3f(.25f, .25f, z), Vec3f(0, 0, -1));
        EXPECT_TRUE(down.intersect(a, b, c, t, &normal));
        EXPECT_EQ(t, z) << "behind the start t is negative";
        EXPECT_EQ(normal, Vec3f(0, 0, 1));
        EXPECT_TRUE(down.intersect(a, c, b, t, &normal));
        EXPECT_EQ(normal, Vec3f(0, 0, -1)) << "by the winding";
    }
    Real32 t;
    EXPECT_FALSE(Line(Pnt3f(.6f, .6f, 1), Vec3f(0, 0, -1)).intersect(a, b, c, t));
    EXPECT_FALSE(Line(Pnt3f(0, 0, 1), Vec3f(1, 0, 0)).intersect(a, b, c, t)) << "parallel";
    EXPECT_FALSE(Line(Pnt3f(0, 0, 1), Vec3f(0, 0, -1)).intersect(a, b, b, t)) << "degenerate";
}

TEST(Planes, TellSides) {
    const Plane plane(Pnt3f(0, 0, 1), Pnt3f(1, 0, 1), Pnt3f(0, 1, 1));
    EXPECT_EQ(plane.getNormal(), Vec3f(0, 0, 1));
    EXPECT_EQ(plane.distance(Pnt3f(0, 0, 3)), 2.f);
    EXPECT_TRUE(plane.isInHalfSpace(Pnt3f(5, 5, 1)) && !plane.isInHalfSpace(Pnt3f(5, 5, .5f)));
}

} // namespace
