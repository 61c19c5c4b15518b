<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>API</name>
    <message>
        <source>Signed out. Please sign in again.</source>
        <translation>Abgemeldet. Bitte melden Sie sich erneut an.</translation>
    </message>
    <message>
        <source>The server&apos;s answer is larger than %1 MB.</source>
        <translation>Die Antwort des Servers ist größer als %1 MB.</translation>
    </message>
    <message>
        <source>The server did not finish answering within %1 seconds.</source>
        <translation>Der Server hat seine Antwort nicht innerhalb von %1 Sekunden abgeschlossen.</translation>
    </message>
    <message>
        <source>The server did not answer within %1 seconds.</source>
        <translation>Der Server hat nicht innerhalb von %1 Sekunden geantwortet.</translation>
    </message>
    <message>
        <source>Something went wrong.</source>
        <translation>Etwas ist schiefgelaufen.</translation>
    </message>
</context>
<context>
    <name>AvatarCropView</name>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Move and scale</source>
        <translation>Verschieben und skalieren</translation>
    </message>
    <message>
        <source>Use</source>
        <translation>Verwenden</translation>
    </message>
    <message>
        <source>Zoom</source>
        <translation>Zoom</translation>
    </message>
</context>
<context>
    <name>CallAudio</name>
    <message>
        <source>Audio: </source>
        <translation>Audio: </translation>
    </message>
    <message>
        <source>Echo cancellation is off. Use headphones.</source>
        <translation>Die Echounterdrückung ist aus. Verwenden Sie Kopfhörer.</translation>
    </message>
</context>
<context>
    <name>CallQuality</name>
    <message>
        <source>Measuring…</source>
        <translation>Wird gemessen…</translation>
    </message>
    <message>
        <source>Good connection</source>
        <translation>Gute Verbindung</translation>
    </message>
    <message>
        <source>Fair connection</source>
        <translation>Mäßige Verbindung</translation>
    </message>
    <message>
        <source>Poor connection</source>
        <translation>Schlechte Verbindung</translation>
    </message>
    <message>
        <source> % loss</source>
        <translation> % Verlust</translation>
    </message>
    <message>
        <source> ms jitter</source>
        <translation> ms Jitter</translation>
    </message>
    <message>
        <source> ms</source>
        <translation> ms</translation>
    </message>
    <message>
        <source> in · </source>
        <translation> empfangen · </translation>
    </message>
    <message>
        <source> out</source>
        <translation> gesendet</translation>
    </message>
</context>
<context>
    <name>CallScreen</name>
    <message>
        <source>Decline</source>
        <translation>Ablehnen</translation>
    </message>
    <message>
        <source>Answer</source>
        <translation>Annehmen</translation>
    </message>
    <message>
        <source>Mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>Unmute</source>
        <translation>Ton an</translation>
    </message>
    <message>
        <source>Keypad</source>
        <translation>Tastenfeld</translation>
    </message>
    <message>
        <source>Hide keypad</source>
        <translation>Tastenfeld ausblenden</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Fortsetzen</translation>
    </message>
    <message>
        <source>Hold</source>
        <translation>Halten</translation>
    </message>
    <message>
        <source>Transfer</source>
        <translation>Vermitteln</translation>
    </message>
    <message>
        <source>Add</source>
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>Add call</source>
        <translation>Anruf hinzufügen</translation>
    </message>
    <message>
        <source>End</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Add participant</source>
        <translation>Teilnehmer hinzufügen</translation>
    </message>
</context>
<context>
    <name>CallStatsPanel</name>
    <message>
        <source>Server: </source>
        <translation>Server: </translation>
    </message>
    <message>
        <source>Local %1</source>
        <translation>Lokal %1</translation>
    </message>
    <message>
        <source>Estimated on this computer</source>
        <translation>Auf diesem Computer geschätzt</translation>
    </message>
    <message>
        <source>Estimated here: </source>
        <translation>Hier geschätzt: </translation>
    </message>
    <message>
        <source>Incoming</source>
        <translation>Eingehend</translation>
    </message>
    <message>
        <source>Outgoing</source>
        <translation>Ausgehend</translation>
    </message>
    <message>
        <source>Round trip</source>
        <translation>Umlaufzeit</translation>
    </message>
    <message>
        <source>Packets</source>
        <translation>Pakete</translation>
    </message>
</context>
<context>
    <name>CallWindow</name>
    <message>
        <source>Call</source>
        <translation>Anruf</translation>
    </message>
    <message>
        <source>Mini bar</source>
        <translation>Minileiste</translation>
    </message>
</context>
<context>
    <name>CallWindows</name>
    <message>
        <source>Incoming call from %1</source>
        <translation>Eingehender Anruf von %1</translation>
    </message>
    <message>
        <source>Incoming call</source>
        <translation>Eingehender Anruf</translation>
    </message>
    <message>
        <source>Calling…</source>
        <translation>Wählt…</translation>
    </message>
    <message>
        <source>Ringing…</source>
        <translation>Klingelt…</translation>
    </message>
    <message>
        <source>Transferring…</source>
        <translation>Wird vermittelt…</translation>
    </message>
    <message>
        <source>On hold</source>
        <translation>Gehalten</translation>
    </message>
</context>
<context>
    <name>CallableRow</name>
    <message>
        <source>Call</source>
        <translation>Anrufen</translation>
    </message>
</context>
<context>
    <name>ColleagueContacts</name>
    <message>
        <source>Updating…</source>
        <translation>Wird aktualisiert …</translation>
    </message>
    <message>
        <source>%1 colleagues</source>
        <translation>Kollegen: %1</translation>
    </message>
    <message>
        <source>Allow access to contacts in Settings first.</source>
        <translation>Erlauben Sie zuerst in den Einstellungen den Zugriff auf die Kontakte.</translation>
    </message>
</context>
<context>
    <name>ColleaguePicker</name>
    <message>
        <source>Forward to</source>
        <translation>Umleiten an</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Search</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>Groups</source>
        <translation>Gruppen</translation>
    </message>
    <message>
        <source>People</source>
        <translation>Personen</translation>
    </message>
</context>
<context>
    <name>ColleaguesToggle</name>
    <message>
        <source>Colleagues in Contacts</source>
        <translation>Kollegen in den Kontakten</translation>
    </message>
    <message>
        <source>Adds colleagues with a direct number to your contacts (group &quot;velnor RZ&quot;). Turning it off removes them again.</source>
        <translation>Fügt Kollegen mit Durchwahl zu Ihren Kontakten hinzu (Gruppe „velnor RZ“). Beim Ausschalten werden sie wieder entfernt.</translation>
    </message>
</context>
<context>
    <name>ConferenceModel</name>
    <message>
        <source>Conference · %1</source>
        <translation>Konferenz · %1</translation>
    </message>
    <message>
        <source>You</source>
        <translation>Sie</translation>
    </message>
</context>
<context>
    <name>ConferenceView</name>
    <message>
        <source>Locked</source>
        <translation>Gesperrt</translation>
    </message>
    <message>
        <source>Conference options</source>
        <translation>Konferenzoptionen</translation>
    </message>
    <message>
        <source>Unlock</source>
        <translation>Entsperren</translation>
    </message>
    <message>
        <source>Lock</source>
        <translation>Sperren</translation>
    </message>
    <message>
        <source>Add participant</source>
        <translation>Teilnehmer hinzufügen</translation>
    </message>
    <message>
        <source>End for everyone</source>
        <translation>Für alle beenden</translation>
    </message>
</context>
<context>
    <name>ContactRow</name>
    <message>
        <source>Calls %1</source>
        <translation>Ruft %1 an</translation>
    </message>
</context>
<context>
    <name>ContactsModel</name>
    <message>
        <source>%1 +%2</source>
        <translation>%1 +%2</translation>
    </message>
</context>
<context>
    <name>ContactsPromptRow</name>
    <message>
        <source>Show contacts</source>
        <translation>Kontakte anzeigen</translation>
    </message>
    <message>
        <source>Names and photos stay on this computer.</source>
        <translation>Namen und Fotos bleiben auf diesem Computer.</translation>
    </message>
</context>
<context>
    <name>DesktopNotifications</name>
    <message>
        <source>Show</source>
        <translation>Anzeigen</translation>
    </message>
    <message>
        <source>Answer</source>
        <translation>Annehmen</translation>
    </message>
    <message>
        <source>Decline</source>
        <translation>Ablehnen</translation>
    </message>
</context>
<context>
    <name>DeviceChoice</name>
    <message>
        <source>Follow the system default (%1)</source>
        <translation>Systemstandard verwenden (%1)</translation>
    </message>
    <message>
        <source>Follow the system default</source>
        <translation>Systemstandard verwenden</translation>
    </message>
    <message>
        <source>%1 (not connected)</source>
        <translation>%1 (nicht verbunden)</translation>
    </message>
</context>
<context>
    <name>DirectoryModel</name>
    <message>
        <source>People</source>
        <translation>Personen</translation>
    </message>
    <message>
        <source>Groups</source>
        <translation>Gruppen</translation>
    </message>
    <message>
        <source>Call flows</source>
        <translation>Anrufabläufe</translation>
    </message>
    <message>
        <source>Available</source>
        <translation>Verfügbar</translation>
    </message>
    <message>
        <source>Ringing</source>
        <translation>Klingelt</translation>
    </message>
    <message>
        <source>On a call</source>
        <translation>Im Gespräch</translation>
    </message>
    <message>
        <source>Do not disturb</source>
        <translation>Nicht stören</translation>
    </message>
    <message>
        <source>Offline</source>
        <translation>Offline</translation>
    </message>
    <message>
        <source>Calls %1</source>
        <translation>Ruft %1 an</translation>
    </message>
</context>
<context>
    <name>DirectoryView</name>
    <message>
        <source>Directory</source>
        <translation>Verzeichnis</translation>
    </message>
    <message>
        <source>Name or number</source>
        <translation>Name oder Nummer</translation>
    </message>
    <message>
        <source>Search</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>No Results</source>
        <translation>Keine Ergebnisse</translation>
    </message>
    <message>
        <source>No results for “%1”</source>
        <translation>Keine Ergebnisse für „%1“</translation>
    </message>
    <message>
        <source>Contacts</source>
        <translation>Kontakte</translation>
    </message>
</context>
<context>
    <name>ForwardingDraft</name>
    <message>
        <source>Off</source>
        <translation>Aus</translation>
    </message>
    <message>
        <source>My voicemail</source>
        <translation>Meine Mailbox</translation>
    </message>
    <message>
        <source>Hang up</source>
        <translation>Auflegen</translation>
    </message>
    <message>
        <source>Colleague</source>
        <translation>Person</translation>
    </message>
    <message>
        <source>Group</source>
        <translation>Gruppe</translation>
    </message>
    <message>
        <source>Call flow</source>
        <translation>Anrufablauf</translation>
    </message>
</context>
<context>
    <name>ForwardingView</name>
    <message>
        <source>Forwarding</source>
        <translation>Rufumleitung</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Forward all calls</source>
        <translation>Alle Anrufe umleiten</translation>
    </message>
    <message>
        <source>When busy</source>
        <translation>Bei besetzt</translation>
    </message>
    <message>
        <source>When not answered</source>
        <translation>Bei Nichtannahme</translation>
    </message>
    <message>
        <source>Ring for</source>
        <translation>Klingeln für</translation>
    </message>
    <message>
        <source>%1 s</source>
        <translation>%1 s</translation>
    </message>
    <message>
        <source>When offline</source>
        <translation>Wenn offline</translation>
    </message>
    <message>
        <source>Phone number</source>
        <translation>Telefonnummer</translation>
    </message>
    <message>
        <source>+49 30 1234567</source>
        <translation>+49 30 1234567</translation>
    </message>
    <message>
        <source>International format, e.g. +49 30 1234567.</source>
        <translation>Im internationalen Format, z. B. +49 30 1234567.</translation>
    </message>
</context>
<context>
    <name>GlobalShortcuts</name>
    <message>
        <source>Answer the ringing call</source>
        <translation>Klingelnden Anruf annehmen</translation>
    </message>
    <message>
        <source>Hang up</source>
        <translation>Auflegen</translation>
    </message>
    <message>
        <source>Mute or unmute the call</source>
        <translation>Anruf stummschalten oder Ton wieder einschalten</translation>
    </message>
</context>
<context>
    <name>HeldCallStrip</name>
    <message>
        <source>On hold</source>
        <translation>Gehalten</translation>
    </message>
    <message>
        <source>Merge</source>
        <translation>Zusammenführen</translation>
    </message>
    <message>
        <source>Swap</source>
        <translation>Makeln</translation>
    </message>
</context>
<context>
    <name>InCallKeypad</name>
    <message>
        <source>No digits sent</source>
        <translation>Keine Ziffern gesendet</translation>
    </message>
    <message>
        <source>Star</source>
        <translation>Stern</translation>
    </message>
    <message>
        <source>Pound</source>
        <translation>Raute</translation>
    </message>
</context>
<context>
    <name>KeypadView</name>
    <message>
        <source>Keypad</source>
        <translation>Tastenfeld</translation>
    </message>
    <message>
        <source>No number entered</source>
        <translation>Keine Nummer eingegeben</translation>
    </message>
    <message>
        <source>Star</source>
        <translation>Stern</translation>
    </message>
    <message>
        <source>Hash</source>
        <translation>Raute</translation>
    </message>
    <message>
        <source>Call</source>
        <translation>Anrufen</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
</context>
<context>
    <name>LoadErrorView</name>
    <message>
        <source>Could not load</source>
        <translation>Laden fehlgeschlagen</translation>
    </message>
    <message>
        <source>Try again</source>
        <translation>Erneut versuchen</translation>
    </message>
</context>
<context>
    <name>LoginView</name>
    <message>
        <source>RZ · Phone system</source>
        <translation>RZ · Telefonanlage</translation>
    </message>
    <message>
        <source>Sign in with velnor RZ</source>
        <translation>Mit velnor RZ anmelden</translation>
    </message>
    <message>
        <source>Continue in your browser.</source>
        <translation>Fahren Sie in Ihrem Browser fort.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Other server</source>
        <translation>Anderer Server</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>Address of your velnor RZ dashboard.</source>
        <translation>Adresse Ihres Dashboards von velnor RZ.</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>MiniBar</name>
    <message>
        <source>Decline</source>
        <translation>Ablehnen</translation>
    </message>
    <message>
        <source>Answer</source>
        <translation>Annehmen</translation>
    </message>
    <message>
        <source>Unmute</source>
        <translation>Ton an</translation>
    </message>
    <message>
        <source>Mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>End</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Swap calls</source>
        <translation>Anrufe makeln</translation>
    </message>
    <message>
        <source>Full controls</source>
        <translation>Alle Bedienelemente</translation>
    </message>
</context>
<context>
    <name>MissedCallNotifications</name>
    <message>
        <source>Show</source>
        <translation>Anzeigen</translation>
    </message>
    <message>
        <source>Call back</source>
        <translation>Zurückrufen</translation>
    </message>
    <message>
        <source>Missed call</source>
        <translation>Verpasster Anruf</translation>
    </message>
</context>
<context>
    <name>ParticipantTile</name>
    <message>
        <source>Muted</source>
        <translation>Stummgeschaltet</translation>
    </message>
    <message>
        <source>Unmute</source>
        <translation>Ton an</translation>
    </message>
    <message>
        <source>Mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>Remove from conference</source>
        <translation>Aus der Konferenz entfernen</translation>
    </message>
</context>
<context>
    <name>Phone</name>
    <message>
        <source>Invalid settings: </source>
        <translation>Ungültige Einstellungen: </translation>
    </message>
    <message>
        <source>Cannot reach </source>
        <translation>Keine Verbindung zu </translation>
    </message>
    <message>
        <source>. Check your connection or VPN.</source>
        <translation>. Prüfen Sie Ihre Internetverbindung oder Ihr VPN.</translation>
    </message>
    <message>
        <source> did not answer.</source>
        <translation> antwortet nicht.</translation>
    </message>
    <message>
        <source>Something went wrong.</source>
        <translation>Etwas ist schiefgelaufen.</translation>
    </message>
    <message>
        <source>Audio: </source>
        <translation>Audio: </translation>
    </message>
    <message>
        <source>Transfer failed: </source>
        <translation>Vermittlung fehlgeschlagen: </translation>
    </message>
</context>
<context>
    <name>PresenceDot</name>
    <message>
        <source>Available</source>
        <translation>Verfügbar</translation>
    </message>
    <message>
        <source>Ringing</source>
        <translation>Klingelt</translation>
    </message>
    <message>
        <source>On a call</source>
        <translation>Im Gespräch</translation>
    </message>
    <message>
        <source>Do not disturb</source>
        <translation>Nicht stören</translation>
    </message>
    <message>
        <source>Offline</source>
        <translation>Offline</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>The autostart entry could not be removed: %1</source>
        <translation>Der Autostart-Eintrag konnte nicht entfernt werden: %1</translation>
    </message>
    <message>
        <source>The autostart folder %1 could not be made.</source>
        <translation>Der Autostart-Ordner %1 konnte nicht angelegt werden.</translation>
    </message>
    <message>
        <source>The autostart entry could not be written: %1</source>
        <translation>Der Autostart-Eintrag konnte nicht geschrieben werden: %1</translation>
    </message>
</context>
<context>
    <name>QualityBars</name>
    <message>
        <source>Good connection</source>
        <translation>Gute Verbindung</translation>
    </message>
    <message>
        <source>Fair connection</source>
        <translation>Mäßige Verbindung</translation>
    </message>
    <message>
        <source>Poor connection</source>
        <translation>Schlechte Verbindung</translation>
    </message>
</context>
<context>
    <name>QueueCard</name>
    <message>
        <source>Logged in to %1</source>
        <translation>Angemeldet bei %1</translation>
    </message>
    <message>
        <source>Paused: no queue calls</source>
        <translation>Pausiert: keine Warteschlangenanrufe</translation>
    </message>
    <message>
        <source>Available for queue calls</source>
        <translation>Verfügbar für Warteschlangenanrufe</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Fortsetzen</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>Waiting calls</source>
        <translation>Wartende Anrufe</translation>
    </message>
    <message>
        <source>Nobody waiting</source>
        <translation>Niemand wartet</translation>
    </message>
    <message>
        <source>%1 waiting</source>
        <translation>Wartend: %1</translation>
    </message>
    <message>
        <source>%1 · longest %2</source>
        <translation>%1 · am längsten %2</translation>
    </message>
    <message>
        <source>Unknown caller</source>
        <translation>Unbekannter Anrufer</translation>
    </message>
    <message>
        <source>You</source>
        <translation>Sie</translation>
    </message>
    <message>
        <source>Available</source>
        <translation>Verfügbar</translation>
    </message>
    <message>
        <source>Ringing</source>
        <translation>Klingelt</translation>
    </message>
    <message>
        <source>On a call</source>
        <translation>Im Gespräch</translation>
    </message>
    <message>
        <source>Wrap-up</source>
        <translation>Nachbearbeitung</translation>
    </message>
    <message>
        <source>Paused</source>
        <translation>Pausiert</translation>
    </message>
    <message>
        <source>Unreachable</source>
        <translation>Nicht erreichbar</translation>
    </message>
    <message>
        <source>Logged out</source>
        <translation>Abgemeldet</translation>
    </message>
</context>
<context>
    <name>QueuesView</name>
    <message>
        <source>Queues</source>
        <translation>Warteschlangen</translation>
    </message>
    <message>
        <source>No queues</source>
        <translation>Keine Warteschlangen</translation>
    </message>
    <message>
        <source>Queues you are an agent of appear here.</source>
        <translation>Warteschlangen, in denen Sie Agent sind, erscheinen hier.</translation>
    </message>
</context>
<context>
    <name>RecentRow</name>
    <message>
        <source>In progress</source>
        <translation>Läuft</translation>
    </message>
    <message>
        <source>Answered by a colleague</source>
        <translation>Von Kollegen angenommen</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>Fehlgeschlagen</translation>
    </message>
    <message>
        <source>Not answered</source>
        <translation>Nicht angenommen</translation>
    </message>
    <message>
        <source>Missed · Mailbox</source>
        <translation>Verpasst · Mailbox</translation>
    </message>
    <message>
        <source>Missed</source>
        <translation>Verpasst</translation>
    </message>
</context>
<context>
    <name>RecentsView</name>
    <message>
        <source>Recents</source>
        <translation>Anrufliste</translation>
    </message>
    <message>
        <source>No calls yet</source>
        <translation>Noch keine Anrufe</translation>
    </message>
    <message>
        <source>Calls you make or receive appear here.</source>
        <translation>Ihre ein- und ausgehenden Anrufe erscheinen hier.</translation>
    </message>
    <message>
        <source>Incoming</source>
        <translation>Eingehend</translation>
    </message>
    <message>
        <source>Outgoing</source>
        <translation>Ausgehend</translation>
    </message>
    <message>
        <source>Voicemail</source>
        <translation>Mailbox</translation>
    </message>
</context>
<context>
    <name>RecordPill</name>
    <message>
        <source>Recording, stop</source>
        <translation>Aufnahme läuft, beenden</translation>
    </message>
    <message>
        <source>Record this call</source>
        <translation>Diesen Anruf aufnehmen</translation>
    </message>
    <message>
        <source>Stop recording</source>
        <translation>Aufnahme beenden</translation>
    </message>
    <message>
        <source>Recording</source>
        <translation>Aufnahme</translation>
    </message>
    <message>
        <source>Record</source>
        <translation>Aufnehmen</translation>
    </message>
</context>
<context>
    <name>RootView</name>
    <message>
        <source>Recents</source>
        <translation>Anrufliste</translation>
    </message>
    <message>
        <source>Directory</source>
        <translation>Verzeichnis</translation>
    </message>
    <message>
        <source>Keypad</source>
        <translation>Tastenfeld</translation>
    </message>
    <message>
        <source>Voicemail</source>
        <translation>Mailbox</translation>
    </message>
    <message>
        <source>Queues</source>
        <translation>Warteschlangen</translation>
    </message>
    <message>
        <source>Sections</source>
        <translation>Bereiche</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
</context>
<context>
    <name>RowCallButton</name>
    <message>
        <source>Call</source>
        <translation>Anrufen</translation>
    </message>
</context>
<context>
    <name>RowText</name>
    <message>
        <source>Yesterday</source>
        <translation>Gestern</translation>
    </message>
</context>
<context>
    <name>Session</name>
    <message>
        <source>Could not open a web browser. To sign in, open this address in one: %1</source>
        <translation>Es konnte kein Webbrowser geöffnet werden. Öffnen Sie zum Anmelden diese Adresse in einem Browser: %1</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 von %2</translation>
    </message>
    <message>
        <source>Unknown caller</source>
        <translation>Unbekannter Anrufer</translation>
    </message>
    <message>
        <source>Could not save the voicemail: %1</source>
        <translation>Die Mailbox-Nachricht konnte nicht gespeichert werden: %1</translation>
    </message>
    <message>
        <source>Unexpected answer from %1. Is the server up to date?</source>
        <translation>Unerwartete Antwort von %1. Ist der Server auf dem neuesten Stand?</translation>
    </message>
</context>
<context>
    <name>SettingsState</name>
    <message>
        <source>Change picture</source>
        <translation>Bild ändern</translation>
    </message>
    <message>
        <source>This picture is larger than 20 MB. Choose a smaller one, or make it smaller first.</source>
        <translation>Dieses Bild ist größer als 20 MB. Wählen Sie ein kleineres oder verkleinern Sie es zuerst.</translation>
    </message>
    <message>
        <source>This picture could not be opened.</source>
        <translation>Dieses Bild konnte nicht geöffnet werden.</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Verbunden</translation>
    </message>
    <message>
        <source>Not connected</source>
        <translation>Nicht verbunden</translation>
    </message>
</context>
<context>
    <name>SettingsWindow</name>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>Do not disturb</source>
        <translation>Nicht stören</translation>
    </message>
    <message>
        <source>Do not disturb: none of your phones rings, also not for group calls.</source>
        <translation>Nicht stören: Keines Ihrer Telefone klingelt, auch nicht bei Gruppenanrufen.</translation>
    </message>
    <message>
        <source>Forwarding</source>
        <translation>Rufumleitung</translation>
    </message>
    <message>
        <source>Closing the window quits velnor RZ; calls then only reach your other devices.</source>
        <translation>Wenn Sie das Fenster schließen, wird velnor RZ beendet; Anrufe erreichen dann nur Ihre anderen Geräte.</translation>
    </message>
    <message>
        <source>Closing the window keeps velnor RZ in the tray, so calls still reach this computer.</source>
        <translation>Wenn Sie das Fenster schließen, bleibt velnor RZ im Infobereich, sodass Anrufe diesen Computer weiterhin erreichen.</translation>
    </message>
    <message>
        <source>This desktop shows no tray. Closing the window keeps velnor RZ running, so calls still reach this computer; start velnor RZ again to bring its window back.</source>
        <translation>Diese Arbeitsumgebung hat keinen Infobereich. Wenn Sie das Fenster schließen, läuft velnor RZ weiter, sodass Anrufe diesen Computer weiterhin erreichen; starten Sie velnor RZ erneut, um das Fenster wieder anzuzeigen.</translation>
    </message>
    <message>
        <source>Answer, hang up and mute work from anywhere with the keys chosen in the desktop&apos;s shortcut settings.</source>
        <translation>Annehmen, Auflegen und Stummschalten funktionieren überall mit den Tasten, die in den Tastenkürzel-Einstellungen der Arbeitsumgebung festgelegt sind.</translation>
    </message>
    <message>
        <source>This desktop offers no global shortcuts: answer, hang up and mute work while a velnor RZ window is in front.</source>
        <translation>Diese Arbeitsumgebung bietet keine globalen Tastenkürzel: Annehmen, Auflegen und Stummschalten funktionieren, solange ein Fenster von velnor RZ im Vordergrund ist.</translation>
    </message>
    <message>
        <source>Sign out</source>
        <translation>Abmelden</translation>
    </message>
    <message>
        <source>Dismiss</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Extension</source>
        <translation>Durchwahl</translation>
    </message>
    <message>
        <source>Change picture</source>
        <translation>Bild ändern</translation>
    </message>
    <message>
        <source>Remove picture</source>
        <translation>Bild entfernen</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>Phone</source>
        <translation>Telefon</translation>
    </message>
    <message>
        <source>SIP user</source>
        <translation>SIP-Benutzer</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>Live updates</source>
        <translation>Live-Aktualisierung</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>Ton</translation>
    </message>
    <message>
        <source>Ringing device</source>
        <translation>Klingelgerät</translation>
    </message>
    <message>
        <source>Call speaker</source>
        <translation>Lautsprecher für Anrufe</translation>
    </message>
    <message>
        <source>Call microphone</source>
        <translation>Mikrofon für Anrufe</translation>
    </message>
    <message>
        <source>Test call</source>
        <translation>Testanruf</translation>
    </message>
    <message>
        <source>Calls the echo test: what you say comes back a moment later.</source>
        <translation>Ruft den Echotest an: Was Sie sagen, hören Sie einen Moment später wieder.</translation>
    </message>
    <message>
        <source>A device that is unplugged is replaced by the system default until it is back. A change of the call&apos;s devices applies from the next call.</source>
        <translation>Ein ausgestecktes Gerät wird durch den Systemstandard ersetzt, bis es wieder da ist. Eine Änderung der Anrufgeräte gilt ab dem nächsten Anruf.</translation>
    </message>
    <message>
        <source>The sound server has not answered yet; calls and the ring use the system default.</source>
        <translation>Der Soundserver hat noch nicht geantwortet; Anrufe und Klingelton verwenden den Systemstandard.</translation>
    </message>
    <message>
        <source>App</source>
        <translation>App</translation>
    </message>
    <message>
        <source>Keep running in the tray when the window is closed</source>
        <translation>Im Infobereich weiterlaufen, wenn das Fenster geschlossen ist</translation>
    </message>
    <message>
        <source>Open at login</source>
        <translation>Bei der Anmeldung öffnen</translation>
    </message>
    <message>
        <source>Removing the computer deletes it from your devices; it stops ringing. Keeping it lets you sign in again with the same device.</source>
        <translation>Wenn Sie den Computer entfernen, wird er aus Ihren Geräten gelöscht und klingelt nicht mehr. Wenn Sie ihn behalten, können Sie sich mit demselben Gerät wieder anmelden.</translation>
    </message>
    <message>
        <source>Sign out and remove this computer</source>
        <translation>Abmelden und diesen Computer entfernen</translation>
    </message>
    <message>
        <source>Sign out, keep the device</source>
        <translation>Abmelden, Gerät behalten</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>ShellState</name>
    <message>
        <source>Not set up</source>
        <translation>Nicht eingerichtet</translation>
    </message>
    <message>
        <source>Connecting…</source>
        <translation>Verbindet…</translation>
    </message>
    <message>
        <source>Online</source>
        <translation>Online</translation>
    </message>
    <message>
        <source>Offline</source>
        <translation>Offline</translation>
    </message>
    <message>
        <source>Off</source>
        <translation>Aus</translation>
    </message>
    <message>
        <source>All calls</source>
        <translation>Alle Anrufe</translation>
    </message>
    <message>
        <source>%1 rules</source>
        <translation>Regeln: %1</translation>
    </message>
</context>
<context>
    <name>SkeletonList</name>
    <message>
        <source>Loading</source>
        <translation>Wird geladen</translation>
    </message>
</context>
<context>
    <name>StaleBanner</name>
    <message>
        <source>Offline. Showing saved data, tap to retry</source>
        <translation>Offline. Gespeicherte Daten werden angezeigt, zum erneuten Versuch klicken</translation>
    </message>
</context>
<context>
    <name>StatsToggle</name>
    <message>
        <source>Hide call statistics</source>
        <translation>Anrufstatistik ausblenden</translation>
    </message>
    <message>
        <source>Show call statistics</source>
        <translation>Anrufstatistik anzeigen</translation>
    </message>
</context>
<context>
    <name>TargetField</name>
    <message>
        <source>Off</source>
        <translation>Aus</translation>
    </message>
    <message>
        <source>My voicemail</source>
        <translation>Meine Mailbox</translation>
    </message>
    <message>
        <source>Colleague or group…</source>
        <translation>Person oder Gruppe…</translation>
    </message>
    <message>
        <source>Phone number…</source>
        <translation>Telefonnummer…</translation>
    </message>
    <message>
        <source>Hang up</source>
        <translation>Auflegen</translation>
    </message>
</context>
<context>
    <name>TransferSheet</name>
    <message>
        <source>Add call</source>
        <translation>Anruf hinzufügen</translation>
    </message>
    <message>
        <source>Add to conference</source>
        <translation>Zur Konferenz hinzufügen</translation>
    </message>
    <message>
        <source>Transfer to</source>
        <translation>Vermitteln an</translation>
    </message>
    <message>
        <source>Call %1</source>
        <translation>%1 anrufen</translation>
    </message>
    <message>
        <source>Add %1</source>
        <translation>%1 hinzufügen</translation>
    </message>
    <message>
        <source>Transfer to %1</source>
        <translation>An %1 vermitteln</translation>
    </message>
    <message>
        <source>Name or number</source>
        <translation>Name oder Nummer</translation>
    </message>
    <message>
        <source>Keypad</source>
        <translation>Tastenfeld</translation>
    </message>
    <message>
        <source>Hide keypad</source>
        <translation>Tastenfeld ausblenden</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>TrayIcon</name>
    <message>
        <source>1 missed call</source>
        <translation>1 verpasster Anruf</translation>
    </message>
    <message>
        <source>%1 missed calls</source>
        <translation>%1 verpasste Anrufe</translation>
    </message>
</context>
<context>
    <name>TrayPanel</name>
    <message>
        <source>Not signed in</source>
        <translation>Nicht angemeldet</translation>
    </message>
    <message>
        <source>Incoming call</source>
        <translation>Eingehender Anruf</translation>
    </message>
    <message>
        <source>Calling…</source>
        <translation>Wählt…</translation>
    </message>
    <message>
        <source>Ringing…</source>
        <translation>Klingelt…</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Verbunden</translation>
    </message>
    <message>
        <source>Decline</source>
        <translation>Ablehnen</translation>
    </message>
    <message>
        <source>Answer</source>
        <translation>Annehmen</translation>
    </message>
    <message>
        <source>Unmute</source>
        <translation>Ton an</translation>
    </message>
    <message>
        <source>Mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>End</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Show the call</source>
        <translation>Anruf anzeigen</translation>
    </message>
    <message>
        <source>Number or extension</source>
        <translation>Nummer oder Durchwahl</translation>
    </message>
    <message>
        <source>Call</source>
        <translation>Anrufen</translation>
    </message>
    <message>
        <source>Do not disturb</source>
        <translation>Nicht stören</translation>
    </message>
    <message>
        <source>Recent</source>
        <translation>Letzte Anrufe</translation>
    </message>
    <message>
        <source>Call %1</source>
        <translation>%1 anrufen</translation>
    </message>
    <message>
        <source>Open velnor RZ</source>
        <translation>velnor RZ öffnen</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>Quit velnor RZ</source>
        <translation>velnor RZ beenden</translation>
    </message>
</context>
<context>
    <name>VoicemailPlayer</name>
    <message>
        <source>The voicemail&apos;s sound could not be read.</source>
        <translation>Der Ton der Mailbox-Nachricht konnte nicht gelesen werden.</translation>
    </message>
    <message>
        <source>Voicemail can be played after the call.</source>
        <translation>Mailbox-Nachrichten können nach dem Anruf abgespielt werden.</translation>
    </message>
</context>
<context>
    <name>VoicemailRow</name>
    <message>
        <source>Unread</source>
        <translation>Ungelesen</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Abspielen</translation>
    </message>
    <message>
        <source>Call back</source>
        <translation>Zurückrufen</translation>
    </message>
    <message>
        <source>Read</source>
        <translation>Gelesen</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Mark as unread</source>
        <translation>Als ungelesen markieren</translation>
    </message>
    <message>
        <source>Mark as read</source>
        <translation>Als gelesen markieren</translation>
    </message>
</context>
<context>
    <name>VoicemailView</name>
    <message>
        <source>Voicemail</source>
        <translation>Mailbox</translation>
    </message>
    <message>
        <source>No mailbox</source>
        <translation>Keine Mailbox</translation>
    </message>
    <message>
        <source>Your account has no mailbox in velnor RZ.</source>
        <translation>Ihr Konto hat keine Mailbox in velnor RZ.</translation>
    </message>
    <message>
        <source>No messages</source>
        <translation>Keine Nachrichten</translation>
    </message>
    <message>
        <source>Voicemail messages appear here.</source>
        <translation>Mailbox-Nachrichten erscheinen hier.</translation>
    </message>
</context>
</TS>
