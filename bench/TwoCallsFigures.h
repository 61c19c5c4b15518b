#pragma once

// Hold, swap and blind transfer on a real call through rz-devserver's phone
// system; prints hold_resume_ms, swap_ms and transfer_ms with a baseline.
void twoCallsFigures();
