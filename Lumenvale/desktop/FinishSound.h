#pragma once

namespace lumenvale::FinishSound {

// Plays the sound that says a recording was saved, without waiting for it: the
// freedesktop sound theme's "complete" event through canberra-gtk-play when present,
// else the theme's sound file through paplay, else Lumenvale's own short chime (a
// WAV file written once to the cache folder) through paplay. Any failure is silent:
// the sound never fails a save. The choice is made on first use. GUI thread.
void play();

} // namespace lumenvale::FinishSound
