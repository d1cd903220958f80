#pragma once

#include "ai/model_profile.h"
#include "language/tavo_error.h"

#include <QList>
#include <QString>

#include <optional>

namespace tavo {

class Defaults;

// The one library of model profiles every AI feature shares, kept in the settings. There is no
// copy in memory: each screen loads its own and writes through `save`.
namespace AIModelProfileStore {

inline const QString profilesKey = QStringLiteral("tavoAIModelProfiles");
// Read when the key above holds nothing usable; never written.
inline const QString legacyProfilesKey = QStringLiteral("tavoCollectionModelProfiles");
inline const QString selectedProfileKey = QStringLiteral("tavoSelectedAIModelProfile");
inline const QString legacySelectedProfileKey = QStringLiteral("tavoCollectionSelectedProfile");
inline const QString collectionModelKey = QStringLiteral("tavoCollectionModel");
// Where a library that no longer decodes is kept before `load` writes over it; a second one
// goes under this key with "2" added, and so on, so none is lost.
inline const QString unreadableProfilesKey = QStringLiteral("tavoAIModelProfilesUnreadable");

// The profile used when the library is empty.
const CollectionAIModelProfile& starter();
// The built-in rows added to every library that lacks them, in display order.
const QList<CollectionAIModelProfile>& curated();

// The library, never empty: the stored one (or the legacy one), with missing curated rows
// appended and retired models moved on, saved back as it is returned.
QList<CollectionAIModelProfile> load(Defaults& defaults);

// Writes the library; a library that cannot be encoded leaves the stored value as it was.
void save(Defaults& defaults, const QList<CollectionAIModelProfile>& profiles);

// A retired model id's successor, as `load` applies it: true when `profile` changed.
bool migrateRetiredModel(CollectionAIModelProfile& profile);

// The id a builder opens with.
QString selectedProfileID(const Defaults& defaults);
// The profile of that id, else the library's first, else `starter`.
CollectionAIModelProfile selectedModel(const QList<CollectionAIModelProfile>& profiles, const QString& selectedID);
// Stores a selection where both builders and the collection builder read it.
void selectProfile(Defaults& defaults, const CollectionAIModelProfile& profile);

// Appends a new profile and saves, then stores its key unless `key` is empty. The keyring's
// error, if storing failed; the profile stays added.
std::optional<TavoError> addProfile(Defaults& defaults, QList<CollectionAIModelProfile>& profiles,
                                    const CollectionAIModelProfile& profile, const QString& key);

// Takes every profile of `id` out of `profiles` and saves; erases the key of its account when
// no remaining profile shares it. The keyring's error, if erasing failed.
std::optional<TavoError> removeProfile(Defaults& defaults, QList<CollectionAIModelProfile>& profiles,
                                       const QString& id);

} // namespace AIModelProfileStore

} // namespace tavo
