// The whole engine, one concern per file. Included by a table's own translation unit, which
// instantiates the engine for its table type.
#pragma once

#include "AsicSwTable/Allocation.h"
#include "AsicSwTable/InitComplete.h"
#include "AsicSwTable/Processing.h"
#include "AsicSwTable/Programming.h"
#include "AsicSwTable/Reads.h"
#include "AsicSwTable/Reconciliation.h"
#include "AsicSwTable/Recovery.h"
#include "AsicSwTable/Removal.h"
#include "AsicSwTable/Resolution.h"
#include "AsicSwTable/Suggestions.h"
#include "AsicSwTable/Teardown.h"
#include "AsicSwTable/WritePath.h"
