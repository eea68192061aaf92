# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Whether each catalogue says every text of the source, and nothing else, with the values in it.

texts_test.py TEMPLATE CATALOGUE.po...: the template comes fresh from the source.
"""

import gettext
import re
import subprocess
import sys
import tempfile


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def faults(template, catalogue):
    with tempfile.TemporaryDirectory() as folder:
        merged, compiled = folder + "/merged.po", folder + "/compiled.mo"
        output("msgmerge", "--quiet", "--no-fuzzy-matching", "--output-file", merged, catalogue, template)
        for what in ("--untranslated", "--only-fuzzy", "--only-obsolete"):
            if listed := output("msgattrib", what, "--no-wrap", merged):
                yield f"{what}:\n{listed}"
        output("msgfmt", "--check-format", "--check-domain", "--output-file", compiled, catalogue)
        with open(compiled, "rb") as file:
            texts = gettext.GNUTranslations(file)._catalog
    for text, translation in texts.items():
        english = text[0] if isinstance(text, tuple) else text
        if english and set(re.findall(r"\{\d\}", english)) != set(re.findall(r"\{\d\}", translation)):
            yield f"other values: {english} / {translation}"


def main(template, *catalogues):
    found = [f"{catalogue} {fault}" for catalogue in catalogues for fault in faults(template, catalogue)]
    print("\n".join(found))
    return 1 if found or not catalogues else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
