#pragma once

#include "OSGGroup.h"

OSG_BEGIN_NAMESPACE

class Switch;
typedef FCPtr<GroupPtr, Switch> SwitchPtr;
typedef RefPtr<SwitchPtr> SwitchRefPtr;

/// Core that shows one child, all or none.
class OSG_BASE_DLLMAPPING Switch : public Group {
    OSG_CONTAINER_DECL(Switch, Group, SwitchPtr)
  public:
    enum { ALL = -2, NONE = -1 };
    OSG_FIELD(Choice, 3)

    Int32& getChoice() { return _sfChoice.getValue(); }
    const Int32& getChoice() const { return _sfChoice.getValue(); }
    void setChoice(const Int32& choice) { _sfChoice.setValue(choice); }

  protected:
    Switch() = default;
    Switch(const Switch&) = default;

  private:
    SFInt32 _sfChoice{NONE};
};

OSG_END_NAMESPACE
