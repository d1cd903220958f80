#pragma once

#include <QHash>
#include <QList>

namespace tavo {

// Three-way merge of lists of records with an `id`, for two processes saving one file: `base` is
// the list as this process last read or wrote it, `ours` its list now, `theirs` the file now.
// What only the other side added, changed or removed is taken over; where both changed one
// record, ours stands. Our order is kept; records only they added follow at the end.
template<typename T>
QList<T> mergeById(const QList<T>& base, const QList<T>& ours, const QList<T>& theirs)
{
    using Id = decltype(T::id);
    QHash<Id, const T*> baseById;
    baseById.reserve(base.size());
    for (const T& item : base) {
        baseById.insert(item.id, &item);
    }
    QHash<Id, const T*> theirsById;
    theirsById.reserve(theirs.size());
    for (const T& item : theirs) {
        theirsById.insert(item.id, &item);
    }

    QList<T> merged;
    merged.reserve(qMax(ours.size(), theirs.size()));
    QHash<Id, bool> oursIds;
    oursIds.reserve(ours.size());
    for (const T& item : ours) {
        oursIds.insert(item.id, true);
        const T* before = baseById.value(item.id);
        const T* their = theirsById.value(item.id);
        if (!before) {
            merged.append(item); // ours is new
        } else if (!their) {
            if (!(item == *before)) {
                merged.append(item); // they removed it, we changed it: keep ours
            }
        } else if (item == *before) {
            merged.append(*their); // only they may have changed it
        } else {
            merged.append(item);
        }
    }
    for (const T& item : theirs) {
        if (!oursIds.contains(item.id) && !baseById.contains(item.id)) {
            merged.append(item); // they added it
        }
    }
    return merged;
}

} // namespace tavo
