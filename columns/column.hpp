// IndexedColumn with all its operations: include this, not the parts, where
// a column is used, so that every member a use instantiates is defined.
#pragma once

#include "columns/child_lists.hpp"
#include "columns/column_search.hpp"
#include "columns/find_surrogate.hpp"
#include "columns/indexed_column.hpp"
#include "columns/numeric_divisions.hpp"
#include "nominal/build_levels.hpp"
#include "nominal/find_nominal_split.hpp"
