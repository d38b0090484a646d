# Homebrew formula for norrowctl, Norrow's command-line tool, built from a release's source.
# Not built or tested here (this repository's machines run Debian): each release fills in
# `url` and `sha256` for its source tarball and runs `brew install --build-from-source` and
# `brew test` on a Mac before publishing it in the tap.
class Norrowctl < Formula
  desc "Command-line tool of Norrow, which tells you when a Claude Code session needs you"
  homepage "https://norrow.qelvane.com"
  url "https://norrow.qelvane.com/releases/norrow-1.0.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"

  depends_on "asio" => :build
  depends_on "cli11" => :build
  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "nlohmann-json" => :build
  depends_on "pkg-config" => :build
  depends_on "icu4c"
  depends_on :macos
  depends_on "qt"
  depends_on "qtkeychain"

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DNORROW_VERSION=#{version}",
           "-DNORROW_BUILD_TESTS=OFF", "-DNORROW_BUILD_BENCH=OFF", *std_cmake_args
    # Only the tool and what is written from its command table, not the app bundle.
    system "cmake", "--build", "build", "--target", "norrowctl", "norrowctl_docs_files"
    bin.install "build/cli/norrowctl"
    man1.install "build/cli/norrowctl.1.gz"
    bash_completion.install "build/cli/completions/norrowctl"
    zsh_completion.install "build/cli/completions/_norrowctl"
  end

  def caveats
    <<~EOS
      Starting Norrow at login registers the app, so it needs the norrowctl inside Norrow.app:
        /Applications/Norrow.app/Contents/MacOS/norrowctl autostart on
    EOS
  end

  test do
    assert_equal "true\n", shell_output("#{bin}/norrowctl version newer 1.2.0 1.1.9")
    assert_match "autostart", shell_output("#{bin}/norrowctl --help")
  end
end
