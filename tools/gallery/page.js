document.documentElement.classList.add("js");
for (const pair of document.querySelectorAll(".compare")) {
  const range = pair.querySelector("input");
  range.addEventListener("input", () => pair.style.setProperty("--x", range.value + "%"));
}
