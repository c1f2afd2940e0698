// Copyright Marvolith contributors.
// Everything of parameter blocks in one include, under the host's header name.
#pragma once

#include "host/params/iparam_block2.h"
#include "host/params/param_block_desc2.h"
#include "host/params/param_types.h"
#include "host/params/pb2_value.h"
#include "host/params/pb_accessor.h"
