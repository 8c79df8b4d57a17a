#!/usr/bin/env bash
# make-gallery.sh: makes the README's pictures of the frame on whole desktops anew.
set -e -u -o pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
./test --strict desktop_gallery_test
for desktop in Gnome Plasma Xfce; do
    cp "build/test-output/$desktop-DesktopGallery.PictureForTheReadme-0.readme.png" "docs/desktop-${desktop,,}.png"
done
