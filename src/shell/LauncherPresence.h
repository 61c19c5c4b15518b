#pragma once

#include <QString>

class Session;

// The presence word a launcher shows beside a colleague found by extension
// ("Available", "On a call", ...); empty for groups, flows and the unknown.
QString launcherPresence(Session* session, const QString& extension);
