// SPDX-License-Identifier: Apache-2.0
#include "store/cli/category_lookup.h"

#include "store/database/clipboard_categories.h"

namespace vexil {

Result<ClipboardCategory, CommandError> findCategory(StoreDatabase& database, const std::string& name) {
    const auto found = database.categories().named(name);
    if (!found)
        return Failure{CommandError(found.error())};
    const auto& category = found.value();
    if (!category)
        return failure("there is no category \"" + name + "\"; see vexil-store category list");
    return *category;
}

} // namespace vexil
