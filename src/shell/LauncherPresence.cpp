#include "shell/LauncherPresence.h"

#include "session/DirectoryModel.h"
#include "session/Session.h"

QString launcherPresence(Session* session, const QString& extension) {
    if (!session) {
        return {};
    }
    const auto colleague = session->colleague(extension);
    if (!colleague) {
        return {};
    }
    auto& live = session->live();
    const auto it = live.presence().constFind(colleague->id);
    if (it == live.presence().cend()) {
        return {};
    }
    return DirectoryModel::presenceLabel(*it);
}
