#pragma once

#include <QString>

namespace tavo {

class DB;

// Adds the shortcuts and collections every profile starts with where they are missing, then saves.
// What is there stays, so an edited seed keeps its edits and a deleted one comes back. The key
// that raises this program is rebuilt every time, since the program may have moved.
void seedDefaultShortcuts(DB& db, const QString& ownApplicationId, const QString& ownApplicationPath);

} // namespace tavo
