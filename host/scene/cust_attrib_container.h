// Copyright Marvolith contributors.
// The host's custom attribute container: the one class behind ICustAttribContainer.
#pragma once

#include "host/core/cust_attrib.h"

/// A new, ownerless host container (what the class directory creates for a file's container).
ICustAttribContainer* NewCustAttribContainer();

/// Makes cc (a container read from a file) owner's container; false when owner has one already
/// or cc is not a host container.
bool LinkCustAttribContainer(Animatable* owner, ICustAttribContainer* cc);
