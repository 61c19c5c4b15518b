#pragma once

// How fast a call that comes in reaches the person: from the INVITE at the
// engine to the notification shown by a real notification server (dunst on a
// private bus), over calls from a baresip party through kamailio. The
// baseline is a bare Notify round trip to the same server in the same run.
// Prints incoming_to_notification_ms and its companions; throws when the lab
// or a call fails. Its private bus ends the process's session bus when it
// goes, so it runs last (or alone) in a process.
void incomingNotificationFigures();
