#pragma once

#include "OSGAttachmentContainer.h"

#include "OSGSimpleAttachment.h"
