#pragma once

#include "OSGGroup.h"

OSG_BEGIN_NAMESPACE

class Transform;
typedef FCPtr<GroupPtr, Transform> TransformPtr;
typedef RefPtr<TransformPtr> TransformRefPtr;

/// Core that places what hangs below its node.
class OSG_BASE_DLLMAPPING Transform : public Group {
    OSG_CONTAINER_DECL(Transform, Group, TransformPtr)
  public:
    OSG_FIELD(Matrix, 3)

    Matrix& getMatrix() { return _sfMatrix.getValue(); }
    const Matrix& getMatrix() const { return _sfMatrix.getValue(); }
    /// Volumes become stale; endEditCP tells them.
    void setMatrix(const Matrix& matrix) { _sfMatrix.setValue(matrix); }
    SFMatrix* getSFMatrix() { return &_sfMatrix; }
    SFMatrix* editSFMatrix() { return &_sfMatrix; }

    void adjustVolume(Volume& volume) override;
    void accumulateMatrix(Matrix& matrix) override;
    void changed(BitVector which, UInt32 origin) override;

  protected:
    Transform() = default;
    Transform(const Transform&) = default;

  private:
    SFMatrix _sfMatrix;
};

OSG_END_NAMESPACE
