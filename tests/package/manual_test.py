"""The manual page, the completion and the header as HTML: made, and used as their readers would.

manual_test.py PROGRAM
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"
sys.path.insert(0, str(TOOLS))
import program_help  # noqa: E402

PROGRAM = pathlib.Path(sys.argv.pop(1)).resolve()
NEEDED = ("help2man", "doxygen", "man", "mandoc", "zsh")

# In a pseudo terminal, because zsh completes in no other place.
ZSH = """
zmodload zsh/zpty
zpty shell zsh -f
zpty -w shell "PS1=; fpath=({folder} \\$fpath); autoload -U compinit; compinit -u -D; zstyle ':completion:*' list-prompt ''; echo READY"
zpty -r shell seen "*READY*READY*"
zpty -w -n shell "{words}"$'\\t'
zpty -r shell seen "*{wanted}*"
print completed
"""


class ManualTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory()
        cls.out = pathlib.Path(cls.temporary.name)
        cls.make(str(PROGRAM), cls.out)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    @staticmethod
    def make(*words):
        subprocess.run([sys.executable, TOOLS / "make_manual.py", *words], check=True)

    def output(self, *command, data=None):
        done = subprocess.run(command, input=data, capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        return done.stdout

    def test_the_page_has_every_command_and_no_warnings(self):
        page = str(self.out / "man/tarnquill.1")
        text = self.output("man", "--warnings", "-l", page)
        self.assertEqual(self.output("mandoc", "-Tlint", page), "")
        commands = program_help.commands(PROGRAM)
        self.assertGreater(len(commands), 30)
        for command in commands:
            self.assertIn(f"\n   {command.name}\n", text)
            self.assertIn(command.example, text)

    def test_the_header_as_html_has_every_export_and_no_warnings(self):
        self.make("--html", str(self.out))
        pages = "".join(path.read_text() for path in (self.out / "html").glob("group__*.html"))
        header = (TOOLS.parent / "include/tarnquill.h").read_text()
        exports = [line.split("IMG_CALL ")[1].split("(")[0] for line in header.splitlines()
                   if line.startswith("IMG_API ")]
        self.assertEqual([name for name in exports if f"{name}()</h2>" not in pages], [])

    def test_bash_completes_commands_options_and_values(self):
        for words, wanted in (("con", "convert"), ("help ex", "extract extend"), ("", None),
                              ("convert --mono ", "background sauvola otsu"),
                              ("convert a.tif b.bmp --code tiff-g", "tiff-g3 tiff-g4"),
                              ("scan --code macp", ""),  # which nobody writes
                              ("info --an", "--analyse"), ("pages --limit-p", "--limit-pixels"),
                              ("rotate a.t", "")):  # left to the names of files
            script = (f"source {self.out}/completion/tarnquill; COMP_WORDS=(tarnquill {words} {chr(39) * 2})\n"
                      f"[ -n '{words.rpartition(' ')[2]}' ] && unset 'COMP_WORDS[-1]'\n"
                      "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tarnquill; echo \"${COMPREPLY[*]}\"")
            found = self.output("bash", "-c", script).strip()
            if wanted is None:
                self.assertIn("remove-border", found.split())
            else:
                self.assertEqual(found, wanted, words)

    def test_zsh_completes_commands_and_values(self):
        for words, wanted in (("tarnquill remove-b", "remove-border"), ("tarnquill convert --mono sau", "sauvola")):
            script = ZSH.format(folder=self.out / "completion", words=words, wanted=wanted)
            self.assertEqual(self.output("zsh", "-f", data=script), "completed\n")


if __name__ == "__main__":
    absent = [name for name in NEEDED if not shutil.which(name)]
    if absent:
        print("not installed:", *absent)
        sys.exit(77)
    unittest.main()
