// IndexedColumn with all its operations. Only the translation units that
// compile the column (module/instantiate_column.cpp.in) and tests that
// call its parts directly include this; a user of the column includes
// columns/indexed_column.hpp.
#pragma once

#include "columns/child_lists.hpp"
#include "columns/column_search.hpp"
#include "columns/find_surrogate.hpp"
#include "columns/indexed_column.hpp"
#include "columns/numeric_divisions.hpp"
#include "nominal/build_levels.hpp"
#include "nominal/find_nominal_split.hpp"
