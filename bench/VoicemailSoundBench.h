#pragma once

// voicemail_first_sound_ms: from pressing play on a message to its first
// sound at the sink. Prints its "name: value" lines.
void voicemailFirstSoundFigures();
