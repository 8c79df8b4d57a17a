#!/usr/bin/env bash
# make-gallery.sh: makes the README's pictures of the frame on whole desktops, and of the webcam in it, anew.
set -e -u -o pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
./test --strict desktop_gallery_test
./test --strict webcam_gallery_test
cp build/test-output/WebcamGallery.PictureForTheReadme.webcam.readme.png docs/webcam.png
for desktop in Gnome Plasma Xfce; do
    cp "build/test-output/$desktop-DesktopGallery.PictureForTheReadme-0.readme.png" "docs/desktop-${desktop,,}.png"
done
