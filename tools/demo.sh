#!/usr/bin/env bash
# The demo: installs what is missing, builds Nuvrel, writes sample iPhone backups (a plain one, an
# encrypted one, one in the oldest layout) holding photos, a video, Messages and WhatsApp
# conversations, and opens the application on them. Without a display it walks the same journey
# with nuvrel-cli: lists the backups and their files, extracts the photos of the plain and the
# encrypted backup, reads the Messages and WhatsApp conversations of the encrypted one, saves one as
# a fingerprinted PDF and checks it, and makes a photo and a video small enough for WhatsApp.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc 2>/dev/null || sysctl -n hw.ncpu)" --target nuvrel nuvrel-cli nuvrel-make-samples

# The vault asks polkit to check the owner; polkitd reads actions only from there.
if [ "$(uname -s)" = Linux ] && [ -d /usr/share/polkit-1/actions ] &&
   ! cmp -s data/polkit/app.nuvrel.vault.policy /usr/share/polkit-1/actions/app.nuvrel.vault.policy; then
  if [ "$(id -u)" -eq 0 ]; then
    install -m 644 data/polkit/app.nuvrel.vault.policy /usr/share/polkit-1/actions/
  else
    sudo install -m 644 data/polkit/app.nuvrel.vault.policy /usr/share/polkit-1/actions/ || true
  fi
fi

samples=build/demo/Backup
photos=build/demo/Photos
rm -rf build/demo
build/default/tools/samples/nuvrel-make-samples "$samples"

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || [ "$(uname -s)" = Darwin ]; then
  printf '\nOpening Nuvrel on the sample backups in %s.\n' "$samples"
  printf 'The backup "iPhone SE de Louis" is encrypted: its password is demo-1234.\n'
  # Its own settings, so that the demo starts with the welcome screen and leaves yours alone.
  export XDG_CONFIG_HOME="$PWD/build/demo/config"
  exec env NUVREL_BACKUP_ROOT="$samples" build/default/src/app/nuvrel
fi
printf '\nNo display: the same journey with nuvrel-cli.\n'
cli=build/default/src/cli/nuvrel-cli
# A root shell without a login session has no runtime folder; Qt would warn about it on every PDF.
if [ -z "${XDG_RUNTIME_DIR:-}" ] && [ "$(uname -s)" != Darwin ]; then
  XDG_RUNTIME_DIR="$(mktemp -d)"
  export XDG_RUNTIME_DIR
  trap 'rm -rf "$XDG_RUNTIME_DIR"' EXIT
fi

run() {
  printf '\n$ nuvrel-cli %s\n' "$*"
  "$cli" "$@" || printf '(exit status %s)\n' "$?"
}
run backups --root "$samples" --lang fr
run backups --root "$samples" --lang en
run backups --root "$samples" --lang sr-Cyrl
run backups --root "$samples" --json
run files 00008110-001A2B3C4D5E801E --root "$samples" --lang fr
run extract "$samples/00008110-001A2B3C4D5E801E" --photos --to "$photos/Camille" --lang fr

printf '\n$ echo demo-1234 | nuvrel-cli extract 00008030-000E1D2C3B4A5968 --photos --password-stdin --to %s --lang en\n' "$photos/Louis"
echo demo-1234 | "$cli" extract 00008030-000E1D2C3B4A5968 --root "$samples" --photos --password-stdin \
  --to "$photos/Louis" --lang en || printf '(exit status %s)\n' "$?"
printf '\n$ echo wrong | nuvrel-cli extract … --password-stdin (a wrong password)\n'
echo wrong | "$cli" extract 00008030-000E1D2C3B4A5968 --root "$samples" --photos --password-stdin \
  --to "$photos/Wrong" --lang fr || printf '(exit status %s)\n' "$?"

printf '\nExtracted photos:\n'
ls -l "$photos"/*

# Conversations: the Messages database of the encrypted backup, then a WhatsApp export.
sms=build/demo/Messages
echo demo-1234 | "$cli" extract 00008030-000E1D2C3B4A5968 --root "$samples" --password-stdin \
  --domain HomeDomain --path Library/SMS/sms.db --to "$sms" >/dev/null
run chats "$sms/HomeDomain/Library/SMS/sms.db" --lang fr
run chat "$sms/HomeDomain/Library/SMS/sms.db" 2 --lang fr
whatsapp=build/demo/WhatsApp
echo demo-1234 | "$cli" extract 00008030-000E1D2C3B4A5968 --root "$samples" --password-stdin \
  --domain AppDomainGroup-group.net.whatsapp.WhatsApp.shared --path ChatStorage.sqlite --to "$whatsapp" >/dev/null
run chats "$whatsapp/AppDomainGroup-group.net.whatsapp.WhatsApp.shared/ChatStorage.sqlite" --source whatsapp --lang fr
build/default/tools/samples/nuvrel-make-samples --chat-export "build/demo/WhatsApp Chat - Louis.txt"
run chat-export "build/demo/WhatsApp Chat - Louis.txt" --lang en

# The conversation as a fingerprinted PDF, then the check that finds a changed byte.
run chat-pdf "$sms/HomeDomain/Library/SMS/sms.db" 2 -o build/demo/Famille.pdf --lang fr
run verify build/demo/Famille.pdf --lang fr
printf '\x00' | dd of=build/demo/Famille.pdf bs=1 seek=2000 conv=notrunc status=none
run verify build/demo/Famille.pdf --lang fr

# A camera-sized photo and a 1080p clip, made here by ffmpeg, made small enough for WhatsApp; the
# originals stay as they are.
camera=build/demo/Camera
mkdir -p "$camera"
ffmpeg -v error -f lavfi -i "testsrc2=size=4032x3024:rate=1,noise=alls=30:allf=t" -frames:v 1 -q:v 2 \
  "$camera/IMG_4001.JPG"
ffmpeg -v error -f lavfi -i testsrc2=size=1920x1080:rate=30 -f lavfi -i sine=frequency=440 -t 8 \
  -c:v libx264 -crf 16 -c:a aac "$camera/IMG_4002.MOV"
run lighten "$camera/IMG_4001.JPG" "$camera/IMG_4002.MOV" --target whatsapp --to build/demo/Light --lang fr

# An album with a copy of that photo and two lookalikes (re-saved, halved): one group of identical
# files, the copy made second to go, and one group of photos that look alike. The folder is remembered
# for the application's duplicates page.
album=build/demo/Album
mkdir -p "$album/Copies"
cp "$camera/IMG_4001.JPG" "$album/IMG_4001.JPG"
cp "$camera/IMG_4001.JPG" "$album/Copies/IMG_4001.JPG"
ffmpeg -v error -i "$camera/IMG_4001.JPG" -q:v 9 "$album/IMG_4001-retouche.JPG"
ffmpeg -v error -i "$camera/IMG_4001.JPG" -vf scale=2016:1512 "$album/IMG_4001-petite.JPG"
run duplicates "$album" --similar --lang fr

printf '\nWhere the outputs went:\n'
printf '  sample backups       %s\n' "$samples"
printf '  extracted photos     %s\n' "$photos"
printf '  Messages database    %s\n' "$sms"
printf '  WhatsApp database    %s\n' "$whatsapp"
printf '  conversation PDF     %s\n' build/demo/Famille.pdf
printf '  lightened copies     %s\n' build/demo/Light
printf '  duplicates album     %s\n' "$album"
printf 'With a display, this script opens the application itself on the same backups.\n'
